// An application whose static object takes the library down. The linker meets the application first, so that this
// happens after the library's own static objects would be gone. Ends with 0 when all is well.

#include "StaticUser.h"

namespace {

using vireotest::expect;
using vireotest::isUp;

struct Terminator {
    Terminator() = default;
    Terminator(const Terminator&) = delete;
    Terminator& operator=(const Terminator&) = delete;
    ~Terminator() {
        expect(isUp(), "the library is still up after main()");
        ql::terminateVireo();
        expect(!isUp(), "a static object takes it down");
        ql::initializeVireo();
        expect(isUp(), "a static object brings it up again");
        ql::terminateVireo();
    }
};

const Terminator terminator;

} // namespace

int main() {
    ql::initializeVireo();
}
