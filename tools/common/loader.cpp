// SPDX-License-Identifier: MIT
#include "tools/common/loader.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "tools/common/process.h"

namespace tools {

namespace fs = std::filesystem;

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

std::string loaded_library(const std::string &program, const std::string &folder)
{
    process_options listing;
    listing.arguments = {program, "-h"}; // a loader that does not know the variable starts it
    listing.environment = {"LD_TRACE_LOADED_OBJECTS=1"};
    if (!folder.empty()) {
        listing.environment.push_back("LD_LIBRARY_PATH=" + folder);
    }
    listing.timeout = std::chrono::seconds(10);
    return library_in_listing(run_process(listing).output);
}

bool is_from(const std::string &library, const std::string &folder)
{
    const fs::path base = fs::path(folder).lexically_normal() / "";
    const std::string start = base.lexically_normal();
    std::error_code error;
    return fs::path(library).lexically_normal().string().starts_with(start) ||
           fs::equivalent(fs::path(library).parent_path(), folder, error);
}

bool is_reference_library(const std::string &bytes)
{
    // The names of dynamic symbols stay when everything else is stripped.
    static const std::string SYMBOL("\0kel_reference_take_census\0", 27);
    return bytes.find(SYMBOL) != std::string::npos;
}

std::string read_bytes(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return std::move(bytes).str();
}

std::string found_in_path(const std::string &program)
{
    const char *const path = std::getenv("PATH");
    if (program.find('/') != std::string::npos || path == nullptr) {
        return program;
    }
    std::istringstream folders(path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        std::string candidate = std::filesystem::path(folder) / program;
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return program;
}

} // namespace tools
