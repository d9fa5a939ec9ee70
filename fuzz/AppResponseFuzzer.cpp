// The test client's reading of answers: in any pieces it comes to the same as at once.
//
// An input is a byte, whether HEAD was asked, and pieces.

#include "Check.h"
#include "app/testing/ResponseText.h"
#include "reliability/Choices.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace vireofuzz;
using vireo::impl::ResponseReader;

/// What comes of an answer.
struct Outcome {
    std::string error;
    bool isWhole = false;
    bool keepsConnection = false;
    int status = 0;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::string rest;

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

Outcome read(bool isHead, const std::vector<std::string>& pieces) {
    ResponseReader reader(isHead);
    Outcome outcome;
    std::string bytes;
    try {
        for (const std::string& piece : pieces) {
            bytes += piece;
            if (!reader.isWhole()) {
                reader.read(bytes);
            }
        }
        if (!reader.isWhole()) {
            reader.finish();
        }
        outcome.rest = bytes;
    } catch (const std::runtime_error& error) {
        outcome.error = error.what();
        return outcome;
    }
    outcome.isWhole = reader.isWhole();
    outcome.keepsConnection = reader.keepsConnection();
    outcome.status = reader.text().status;
    outcome.headers = reader.text().headers;
    outcome.body = reader.text().body;
    return outcome;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vireotest::Choices choices(data, size);
    const bool isHead = choices.takeBool();
    const std::vector<std::string> pieces = choices.takePieces();
    std::string whole;
    for (const std::string& piece : pieces) {
        whole += piece;
    }
    check(read(isHead, pieces) == read(isHead, {whole}), "in pieces it is another answer");
    return 0;
}
