#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace quenlor::recorder {

/// "01:02:03"; hours may have more digits.
std::string formatTime(std::chrono::seconds time);

/// "15.9 MB": with one decimal, in the unit from kB to TB that leaves at most three digits before
/// it. A unit is 1000 of the one before.
std::string formatSize(std::uint64_t bytes);

/// The level of an amplitude from 0 to 1 in dBFS; minus infinity for 0.
double decibels(double amplitude);
/// "-12.3", or "-inf".
std::string formatDecibels(double amplitude);

/// text fit for one line of a terminal: "?" in place of each control character.
std::string printable(std::string_view text);

}  // namespace quenlor::recorder
