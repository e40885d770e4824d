// NorvGoToCaller.cpp: the host's error. Each service's default is in a file of its own: linkers
// take whole files of a static library, and defaults that share one would clash with a host that
// defines one of them.
#include <norvwlib/norvwlib.h>

NorvGoToCaller::~NorvGoToCaller() = default;

const char* NorvGoToCaller::what() const noexcept { return "a host error ended the run"; }
