// An application whose static object brings the library up. The linker meets the application first, so that this
// happens before the library's own static objects are due. Ends with 0 when all is well.

#include "StaticUser.h"

namespace {

struct Initializer {
    Initializer() { ql::initializeVireo(); }
};

const Initializer initializer;

} // namespace

int main() {
    vireotest::expect(vireotest::isUp(), "the library that a static object brought up is up in main()");
    ql::terminateVireo();
}
