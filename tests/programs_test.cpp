// The example programs of one process, as a user meets them.
#include "session.h"

namespace {

using Describe = InDirectory;
using Discriminate = InDirectory;

TEST_F(Describe, DoesWhatTheSessionsSay) { Session::RunAll(SESSIONS "/describe.txt"); }

TEST_F(Discriminate, DoesWhatTheSessionsSay) { Session::RunAll(SESSIONS "/discriminate.txt"); }

}  // namespace
