#pragma once

#include "vireo/support/qlLog.h"

#include <string>

namespace demo {

/// The process's log while it exists: what goes wrong, or everything when verbose, on standard error.
class ConsoleLog final : public qlLog {
public:
    explicit ConsoleLog(bool verbose);
    ~ConsoleLog() override;

    bool isLogTypeEnabled(qlLogType type) const override { return verbose_ || type >= qlLogType::Engine; }
    bool isVerbose() const override { return verbose_; }
    void writeLine(qlLogType type, const char* tag, const std::string& line) override;

private:
    const bool verbose_;
};

} // namespace demo
