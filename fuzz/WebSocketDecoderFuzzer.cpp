// What a client sends to a session, in any pieces: the strict decoder beside a second one that sees all of it at once.

#include "Check.h"
#include "Mutators.h"
#include "reliability/Choices.h"
#include "session/Codec.h"

#include <cstddef>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

using namespace vireofuzz;
using namespace sessiontest;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vireotest::Choices input(data, size);
    const unsigned int options = input.takeByte();
    const bool isDeflating = (options & 1U) != 0;
    const bool takesOver = (options & 2U) != 0;
    const Driving driving{(options & 4U) != 0, (options & 8U) != 0};
    const std::uint64_t limit = input.takeNumber(0x7FF);
    ql::impl::FrameDecoderSettings settings =
        isDeflating ? deflateSettings(limit, 15, takesOver) : plainSettings(limit);
    settings.inPieces = (options & 16U) != 0;

    const std::vector<std::string> pieces = input.takePieces();
    const std::string bytes = std::accumulate(pieces.begin(), pieces.end(), std::string());
    const NaiveOutcome expected = decodeNaively(bytes, {limit, isDeflating ? 15 : 0, takesOver});
    const Decoded decoded = decode(settings, pieces, driving);
    check(decoded.failure == expected.failure, "the connection fails against the rules, or doesn't");
    check(decoded.events == expected.events, "other messages arrive than were sent");
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most,
                                               unsigned int seed) {
    return vireofuzz::mutateFrames(data, size, most, seed, 3);
}
