// The tests; started by the host with a connection, the real-time side of some of them; started by
// a test, another client.
#include <cstdlib>

#include "Fixture.h"
#include "HoldingClient.h"
#include "OddRtos.h"

int main(int argc, char** argv) {
  int connection = -1;
  std::string behaviour;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word.starts_with("--connection=")) connection = std::atoi(word.c_str() + 13);
    if (word.starts_with("--hold=")) return tessel::tests::RunHoldingClient(word);
    if (word.starts_with("--listen=")) return tessel::tests::ListenAsOddRtos(word.substr(9));
    if (word.starts_with("--behaviour=")) behaviour = word.substr(12);
  }
  if (connection >= 0) {
    return tessel::tests::RunOddRtos(behaviour, tessel::UniqueFd(connection));
  }
  unsetenv("TESSEL_RTOS_SOCKET");  // the tests end the real-time sides they use
  unsetenv("QUILL_DEBUG");         // and compare what programs say
  ::testing::InitGoogleTest(&argc, argv);
  tessel::tests::KeepLogs();
  return RUN_ALL_TESTS();
}
