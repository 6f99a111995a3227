// SPDX-License-Identifier: MIT
#include "tools/common/loader.h"

#include <fstream>
#include <sstream>
#include <utility>

namespace tools {

std::string library_in_listing(const std::string &listing)
{
    std::istringstream lines(listing);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t name = line.find_first_not_of(" \t");
        const std::size_t arrow = line.find(" => ");
        if (arrow == std::string::npos || line.compare(name, 9, "libkel.so") != 0) {
            continue;
        }
        const std::string path = line.substr(arrow + 4);
        const std::size_t address = path.rfind(" (0x");
        return path.starts_with("not found") ? "" : path.substr(0, address);
    }
    return "";
}

std::string read_bytes(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return std::move(bytes).str();
}

} // namespace tools
