#include "DemoResponse.h"

namespace demo {

std::string DemoResponse::getReasonPhrase() const {
    return status_ < 400 ? "OK" : "Error";
}

} // namespace demo
