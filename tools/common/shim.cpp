// SPDX-License-Identifier: MIT
//
// TAVOR_SHIM_FOLDER leads from the folder of installed programs to that of the installed shim.
#include "tools/common/shim.h"

#include <stdexcept>

namespace tools {

namespace fs = std::filesystem;

fs::path own_folder()
{
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path();
}

std::string find_shim(const std::string &program_under_test)
{
    std::error_code error;
    const fs::path program = fs::canonical(program_under_test, error);
    for (const fs::path &programs : {program.parent_path(), own_folder()}) {
        for (const char *const way : {"../lib", TAVOR_SHIM_FOLDER}) {
            const fs::path candidate = programs / way / "libkeltrace.so";
            if (!programs.empty() && fs::exists(candidate, error)) {
                return candidate.lexically_normal();
            }
        }
    }
    return "";
}

std::string why_not_preloaded(const std::string &shim)
{
    std::error_code error;
    if (!fs::is_regular_file(shim, error)) {
        return "no such file: " + shim;
    }
    if (shim.find_first_of(" :") != std::string::npos) {
        return "the loader takes no path with a blank or a colon: " + shim;
    }
    return "";
}

std::string required_shim(const std::string &named, const std::string &program_under_test)
{
    std::string shim = named.empty() ? find_shim(program_under_test) : named;
    if (shim.empty()) {
        throw std::runtime_error("libkeltrace.so is not in its usual place: name it with --shim");
    }
    if (const std::string why = why_not_preloaded(shim); !why.empty()) {
        throw std::runtime_error("--shim: " + why);
    }
    return shim;
}

} // namespace tools
