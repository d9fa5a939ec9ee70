#include "vireo/app/ClientGone.h"

namespace vireo {

ClientGone::ClientGone() noexcept = default;
ClientGone::ClientGone(const ClientGone& other) noexcept = default;
ClientGone& ClientGone::operator=(const ClientGone& other) noexcept = default;
ClientGone::~ClientGone() = default;

const char* ClientGone::what() const noexcept {
    return "the client has gone";
}

} // namespace vireo
