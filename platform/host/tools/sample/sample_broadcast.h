// The sample broadcast: two services in one stream, with all that the library's modules ask a broadcast for.
#pragma once

#include "transport_stream.h"

namespace lumio::sample {

// Makes the stream. The same libraries make the same bytes each time. Throws std::runtime_error if libavcodec lacks an
// encoder.
ts::Bytes MakeBroadcast();

} // namespace lumio::sample
