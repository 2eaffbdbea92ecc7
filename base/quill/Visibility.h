// Marks what the host library exports to the plug-in and to clients; all else stays hidden.
#pragma once

#define QUILL_PUBLIC __attribute__((visibility("default")))
