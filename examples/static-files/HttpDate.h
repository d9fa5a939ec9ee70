#pragma once

#include <chrono>
#include <optional>
#include <string>

// The dates of RFC 9110 section 5.6.7.

std::string httpDate(std::chrono::sys_seconds time);

/// Reads the form that is sent and the two of former times. Nothing when it is no date.
std::optional<std::chrono::sys_seconds> parseHttpDate(const std::string& text);
