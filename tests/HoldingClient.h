// A client that takes frames and keeps them: another process beside a test.
#pragma once

#include <string>

namespace tessel::tests {

// The command line's word that makes this program such a client, holding `frames` frames of `slots`
// that the session has. It uses the real-time side that TESSEL_RTOS_SOCKET names.
std::string HoldingClientOption(int frames, int slots);
// Writes a letter to standard output once it holds them, then waits to be killed.
int RunHoldingClient(const std::string& option);

}  // namespace tessel::tests
