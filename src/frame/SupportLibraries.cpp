#include "vireo/support/SupportLibraries.h"

#include "vireo/support/LibInitCounter.h"

// The components hold nothing that outlives their objects, so bringing them up is a matter of counting users.

namespace ql {
namespace {

// Local statics, so that a static object of the application may call in before this file's own statics are built.
impl::LibInitCounter& tanagerCounter() {
    static impl::LibInitCounter& counter = *new impl::LibInitCounter("tanager", true);
    return counter;
}

impl::LibInitCounter& pipitCounter() {
    static impl::LibInitCounter& counter = *new impl::LibInitCounter("pipit", true);
    return counter;
}

} // namespace

void initializeTanager(const std::string&) {
    tanagerCounter().incrementInitCounter();
}

void terminateTanager() {
    tanagerCounter().decrementInitCounter();
}

bool isTanagerInitialized() {
    return tanagerCounter().isInitialized();
}

namespace json {

void initializeQlPipit() {
    pipitCounter().incrementInitCounter();
}

void terminateQlPipit() {
    pipitCounter().decrementInitCounter();
}

bool isQlPipitInitialized() {
    return pipitCounter().isInitialized();
}

} // namespace json
} // namespace ql
