// The names of inputs, as clients write them. Any other name is the path of a media file.
#pragma once

namespace tessel::rtos {

// As sensor: the test pattern. As microphone: a tone that beeps each second.
inline constexpr char kTestInput[] = "test";
// A sensor whose name begins so is a V4L2 camera.
inline constexpr char kCameraPrefix[] = "/dev/video";
// "tone" or "tone:HZ": a microphone with a tone that does not beep.
inline constexpr char kToneInput[] = "tone";
// "alsa" or "alsa:NAME": a microphone that is a sound card.
inline constexpr char kSoundCardInput[] = "alsa";

}  // namespace tessel::rtos
