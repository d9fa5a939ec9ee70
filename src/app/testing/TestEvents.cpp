// SPDX-License-Identifier: MIT
#include "app/testing/EventReader.h"
#include "vireo/app/TestClient.h"

#include <utility>

namespace vireo {

TestEvents::TestEvents(std::unique_ptr<impl::EventReader>&& reader) : reader_(std::move(reader)) {}

TestEvents::TestEvents(TestEvents&& other) noexcept = default;

TestEvents& TestEvents::operator=(TestEvents&& other) noexcept = default;

TestEvents::~TestEvents() = default;

int TestEvents::status() const {
    return reader_->answer().status;
}

bool TestEvents::next() {
    return reader_->next();
}

const std::string& TestEvents::data() const {
    return reader_->event().data;
}

const std::string& TestEvents::event() const {
    return reader_->event().type;
}

const std::string& TestEvents::id() const {
    return reader_->event().id;
}

} // namespace vireo
