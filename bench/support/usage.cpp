#include "bench/support/usage.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace BenchSupport {

namespace {

/// The lines of /proc/self/status that hold a number, by name.
std::map<std::string, qint64> statusValues()
{
    std::map<std::string, qint64> values;
    std::ifstream status("/proc/self/status");
    if (!status)
        qFatal("cannot read /proc/self/status");
    for (std::string line; std::getline(status, line);) {
        const std::size_t colon = line.find(':');
        values[line.substr(0, colon)] = std::strtoll(line.c_str() + colon + 1, nullptr, 10);
    }
    return values;
}

/// Listing the folder opens it: that descriptor is not the launcher's.
qint64 openDescriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors)) - 1;
}

} // namespace

Usage Usage::now()
{
    const auto values = statusValues();
    return {
        .threads = values.at("Threads"),
        .descriptors = openDescriptors(),
        .residentKiB = values.at("VmRSS"),
        .peakKiB = values.at("VmHWM"),
    };
}

} // namespace BenchSupport
