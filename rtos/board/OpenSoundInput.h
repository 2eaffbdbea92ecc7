// Opening the microphone's input by its name.
#pragma once

#include <memory>
#include <string>

#include "SoundInput.h"

namespace tessel::rtos {

// Opens the microphone input `name` (see InputNames.h). With `loop` a file starts anew at its end.
// Null with `error` naming the input when it does not exist or has no sound.
std::unique_ptr<SoundInput> OpenSoundInput(const std::string& name, bool loop,
                                           const SoundFormat& format, std::string& error);

}  // namespace tessel::rtos
