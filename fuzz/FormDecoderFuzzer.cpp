// What a form goes through on its way to the engine and back, in any pieces, beside references that look at all of it
// at once. The engine's part is played by one that knows nothing but what the filter may leave.

#include "Check.h"
#include "FormReference.h"
#include "engine/FormFilter.h"
#include "engine/PartGatherer.h"
#include "reliability/Choices.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using namespace vireotest;
using ql::impl::FormFilter;
using ql::impl::FormPiece;
using ql::impl::PartGatherer;

/// Keeps what is passed, and where a part may begin.
class Target : public ql::impl::FormTarget {
public:
    bool pass(std::string_view bytes) override {
        passed.append(bytes);
        return true;
    }
    void separate() override { separators.push_back(passed.size()); }

    std::string passed;
    std::vector<std::size_t> separators;
};

struct Outcome {
    bool isGood = true;
    Target target;
};

Outcome filter(std::string_view contentType, const std::vector<std::string>& pieces) {
    const std::unique_ptr<FormFilter> form = FormFilter::For(contentType);
    Outcome outcome;
    for (const std::string& piece : pieces) {
        outcome.isGood = outcome.isGood && form->filter(piece, outcome.target);
    }
    outcome.isGood = outcome.isGood && form->finish(outcome.target);
    return outcome;
}

std::string joined(const std::vector<std::string>& pieces) {
    std::string whole;
    for (const std::string& piece : pieces) {
        whole += piece;
    }
    return whole;
}

/// Decodes a pair as the engine does, in pieces of a size, and refuses what the engine would not read.
bool decodePair(std::string_view pair, std::size_t pieceSize, PartGatherer& gatherer) {
    for (std::size_t i = 0; i < pair.size(); ++i) {
        check(pair[i] != '%' || (i + 2 < pair.size() && hexDigit(pair[i + 1]) >= 0 && hexDigit(pair[i + 2]) >= 0),
              "an escape that is none");
    }
    check(pair.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos, "a byte that ends a form");
    check(std::count(pair.begin(), pair.end(), '=') <= 1, "a second value");
    if (pair.empty()) {
        return true;
    }
    const Pairs decoded = pairsOfForm(pair);
    const auto& [name, value] = decoded[0];
    bool isGood = gatherer.add(name.c_str(), nullptr, nullptr, "", 0);
    for (std::size_t at = 0; at < value.size(); at += pieceSize) {
        isGood =
            isGood && gatherer.add(name.c_str(), nullptr, nullptr, std::string_view(value).substr(at, pieceSize), at);
    }
    return isGood;
}

void checkUrlEncoded(const std::vector<std::string>& pieces, std::size_t pieceSize) {
    constexpr std::string_view Type = "application/x-www-form-urlencoded";
    const std::string body = joined(pieces);
    const Pairs expected = pairsOfForm(body);
    const Outcome outcome = filter(Type, pieces);
    const Outcome whole = filter(Type, {body});
    check(outcome.isGood == whole.isGood, "pieces are malformed, and the whole is not");
    if (!outcome.isGood) {
        check(!areNamed(expected), "a form is refused that can be decoded");
        return;
    }
    check(outcome.target.passed == whole.target.passed && outcome.target.separators == whole.target.separators,
          "pieces are another form");
    check(outcome.target.passed.ends_with('\n'), "no end");
    PartGatherer gatherer(false);
    bool isGood = true;
    std::size_t begin = 0;
    for (const std::size_t separator : outcome.target.separators) {
        const std::string_view pair = std::string_view(outcome.target.passed).substr(begin, separator - begin);
        check(pair.ends_with('&'), "a separator inside a pair");
        isGood = isGood && decodePair(pair.substr(0, pair.size() - 1), pieceSize, gatherer);
        gatherer.separate();
        begin = separator;
    }
    const std::string_view last = std::string_view(outcome.target.passed).substr(begin);
    isGood = isGood && decodePair(last.substr(0, last.size() - 1), pieceSize, gatherer);
    check(isGood == areNamed(expected), "a form is taken or refused against the rules");
    if (!isGood) {
        return;
    }
    Pairs pairs;
    for (const FormPiece& piece : gatherer.take()) {
        if (piece.isPart) {
            pairs.emplace_back(piece.name, "");
        } else {
            pairs.back().second += piece.bytes;
        }
    }
    check(pairs == expected, "other pairs");
}

void checkMultipart(const std::vector<std::string>& pieces, const std::string& boundary) {
    const std::string body = joined(pieces);
    const Outcome outcome = filter("multipart/form-data; boundary=" + boundary, pieces);
    check(outcome.target.passed == body, "other bytes");
    std::vector<std::size_t> expected;
    const std::string delimiter = "\r\n--" + boundary;
    const std::string lines = "\r\n" + body;
    for (std::size_t at = lines.find(delimiter); at != std::string::npos;
         at = lines.find(delimiter, at + delimiter.size())) {
        expected.push_back(at + delimiter.size() - 2);
    }
    check(outcome.target.separators == expected, "other parts");
    check(outcome.isGood == !expected.empty(), "a form without a delimiter is whole, or one with it is not");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices input(data, size);
    const unsigned int kind = input.takeNumber(3);
    const std::size_t pieceSize = input.takeNumber(7) + 1;
    const std::vector<std::string> pieces = input.takePieces();
    if (kind == 0) {
        checkMultipart(pieces, "b");
    } else if (kind == 1) {
        checkMultipart(pieces, "--b-b");
    } else {
        checkUrlEncoded(pieces, pieceSize);
    }
    return 0;
}
