#include "ConsoleLog.h"

#include <iostream>

namespace demo {

ConsoleLog::ConsoleLog(bool verbose) : verbose_(verbose) {
    msInstance = this;
}

ConsoleLog::~ConsoleLog() {
    msInstance = nullptr;
}

void ConsoleLog::writeLine(qlLogType /*type*/, const char* tag, const std::string& line) {
    if (tag != nullptr) {
        std::cerr << '[' << tag << "] ";
    }
    std::cerr << line << std::endl;
}

} // namespace demo
