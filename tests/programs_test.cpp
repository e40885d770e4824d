// The example programs of one process, as a user meets them.
#include "session.h"

namespace {

using Describe = InDirectory;

TEST_F(Describe, DoesWhatTheSessionsSay) { Session::RunAll(SESSIONS "/describe.txt"); }

}  // namespace
