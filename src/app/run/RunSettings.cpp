// SPDX-License-Identifier: MIT
#include "vireo/app/RunSettings.h"

#include "app/run/RunPlan.h"

#include <utility>

namespace vireo {

RunSettings::RunSettings() : plan_(std::make_unique<impl::RunPlan>()) {}

RunSettings::RunSettings(const RunSettings& other) : plan_(std::make_unique<impl::RunPlan>(*other.plan_)) {}

RunSettings::RunSettings(RunSettings&& other) noexcept = default;

RunSettings& RunSettings::operator=(const RunSettings& other) {
    return *this = RunSettings(other);
}

RunSettings& RunSettings::operator=(RunSettings&& other) noexcept = default;

RunSettings::~RunSettings() = default;

void RunSettings::setPort(int port) {
    plan_->port = port;
}

void RunSettings::setAddress(std::string address) {
    plan_->address = std::move(address);
}

void RunSettings::setListen(std::vector<std::string> endpoints) {
    plan_->listen = std::move(endpoints);
}

void RunSettings::setCertificate(std::string file) {
    plan_->certificate = std::move(file);
}

void RunSettings::setKey(std::string file) {
    plan_->key = std::move(file);
}

void RunSettings::setTls(std::shared_ptr<ql::http::TlsContext> tls) {
    plan_->tls = std::move(tls);
}

void RunSettings::setWorkers(unsigned int count) {
    plan_->workers = count;
}

void RunSettings::setQueue(std::size_t size) {
    plan_->queue = size;
}

void RunSettings::setThreads(unsigned int count) {
    plan_->threads = count;
}

void RunSettings::setPatience(std::chrono::milliseconds patience) {
    plan_->patience = patience;
}

void RunSettings::setGrace(std::chrono::milliseconds grace) {
    plan_->grace = grace;
}

void RunSettings::setIdle(std::chrono::milliseconds idle) {
    plan_->idle = idle;
}

void RunSettings::setAccessLog(std::string file) {
    plan_->accessLog = std::move(file);
}

void RunSettings::setAccessLogFormat(AccessLogFormat format) {
    plan_->accessLogFormat = format;
}

void RunSettings::setSignals(bool on) {
    plan_->signals = on;
}

void RunSettings::setActivation(bool on) {
    plan_->activation = on;
}

void RunSettings::setQuiet(bool on) {
    plan_->quiet = on;
}

void RunSettings::setServer(std::function<void(ql::http::ServerOptions&)> adjust) {
    plan_->server = std::move(adjust);
}

const impl::RunPlan& RunSettings::plan() const {
    return *plan_;
}

} // namespace vireo
