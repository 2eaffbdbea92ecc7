// Every record that crosses the command wire.
#pragma once

#include "messages/Applications.h"
#include "messages/AudioControls.h"
#include "messages/Hello.h"
#include "messages/Streams.h"

namespace tessel::link {

// Messages, each with its answer, then the records inside them.
using AllRecords =
    std::tuple<Hello, HelloAnswer, Create, CreateAnswer, DescribeMedia, MediaAnswer, SetStatus,
               Destroy, ListStreams, ListAnswer, SetWord, CountRequest, ProbeAudio, ProbeAnswer,
               SetAudio, Event, Area, BoardInputs, StreamReport, AudioControls>;

}  // namespace tessel::link
