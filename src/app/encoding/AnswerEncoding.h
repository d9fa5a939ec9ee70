// SPDX-License-Identifier: MIT
#pragma once

namespace vireo::impl {

struct Answer;

/// Encodes the body, or the file, of an answer that has an encoder, and says so; without an encoder, or where it does
/// not pay, nothing is changed. No encoder is left.
void encodeWhole(Answer& answer);

/// Says in the head that the body will be encoded by the answer's encoder.
void announceEncoding(Answer& answer);

} // namespace vireo::impl
