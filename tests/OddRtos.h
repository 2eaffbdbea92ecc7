// A real-time side that does what the real one never should, or not on request.
#pragma once

#include <span>
#include <string>

#include "Element.h"
#include "UniqueFd.h"

namespace tessel::tests {

// Elements under the names of the H.264 chain. The source writes units of 1000 bytes, each byte the
// unit's number, as fast as they are taken.
//   counts:    500 of them, then the input ends
//   floods:    no end of them
//   ends:      3 of them, then the input ends
//   fails:     3 of them, then the element fails
// And under those of the PCM chain: live sound of 16 kHz, of which 0.3 s were recorded before it is
// opened; the time stamp of each tenth block lies years ahead.
std::span<const rtos::ElementRow> OddElements();

// Serves `connection` with OddElements() as the behaviour says, or
//   exits:   ends at once
//   mutes:   answers nothing
//   garbles: answers all but "hello" with what is no answer
//   asks:    is the real one, but tells an application's media only when "tesselMedia" asks for it
//   delays:  answers "tesselCreate" when "next" has come, and "next" when the application has been
//            destroyed, with "destroyed=" and its handle
int RunOddRtos(const std::string& behaviour, UniqueFd connection);
// Serves OddElements() to the clients that connect to `path`, until it is told to end.
int ListenAsOddRtos(const std::string& path);

}  // namespace tessel::tests
