#include "vireo/HttpResponseInterface.h"

namespace ql {

HttpResponseInterface::HttpResponseInterface() = default;
HttpResponseInterface::HttpResponseInterface(const HttpResponseInterface&) = default;
HttpResponseInterface& HttpResponseInterface::operator=(const HttpResponseInterface&) = default;
HttpResponseInterface::~HttpResponseInterface() = default;

} // namespace ql
