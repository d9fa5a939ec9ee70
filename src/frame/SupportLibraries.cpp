#include "vireo/support/SupportLibraries.h"

#include "frame/NeverDestroyed.h"
#include "vireo/support/LibInitCounter.h"

// The components hold nothing that outlives their objects, so bringing them up is a matter of counting users.

namespace ql {
namespace {

impl::LibInitCounter& tanagerCounter() {
    static impl::NeverDestroyed<impl::LibInitCounter> counter("tanager", true);
    return *counter;
}

impl::LibInitCounter& pipitCounter() {
    static impl::NeverDestroyed<impl::LibInitCounter> counter("pipit", true);
    return *counter;
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
