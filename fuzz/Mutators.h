#pragma once

#include <cstddef>
#include <cstdint>

namespace vireofuzz {

// Change an input as the engine does, or what it has in pieces (Choices::takePieces()) by records: one more, less,
// elsewhere, or changed inside; or other pieces. They take and return what LLVMFuzzerCustomMutator() does, beside
// `head`, which is how many bytes are before the pieces.

/// Records are the frames of a WebSocket's client. Their lengths fit and their masks are kept.
std::size_t mutateFrames(std::uint8_t* data, std::size_t size, std::size_t most, unsigned int seed, std::size_t head);

/// Records are lines, as requests have them.
std::size_t mutateLines(std::uint8_t* data, std::size_t size, std::size_t most, unsigned int seed, std::size_t head);

} // namespace vireofuzz

/// What the fuzzing engine calls instead of its own changes.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most,
                                               unsigned int seed);
