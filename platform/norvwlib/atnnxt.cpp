// atnnxt.cpp: the default of atnnxt_.
#include <norvwlib/norvwlib.h>

std::int64_t atnnxt_() { throw NorvGoToCaller(); }
