// SPDX-License-Identifier: MIT
#include "tools/mutation/making.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace mutation {

namespace fs = std::filesystem;

std::string read_text(const fs::path &path)
{
    std::ifstream stream(path);
    if (!stream) {
        throw std::runtime_error(path.string() + ": cannot be read");
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

void replace(std::string &text, const std::string &from, const std::string &to)
{
    const std::size_t at = text.find(from);
    if (at == std::string::npos) {
        throw std::runtime_error("unexpected compile command: " + text);
    }
    text.replace(at, from.size(), to);
}

tools::process_result finished(tools::process_options process)
{
    process.timeout_signal = SIGTERM;
    return tools::required_process(process);
}

bool succeeds(const fs::path &folder, const std::string &line)
{
    return finished({.arguments = {"sh", "-c", "cd '" + folder.string() + "' && " + line}})
        .exited_with(0);
}

scratch_folder::scratch_folder()
{
    std::string name = fs::temp_directory_path() / "kel-mutate-XXXXXX";
    if (!mkdtemp(name.data())) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    path = name;
}

scratch_folder::~scratch_folder()
{
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

} // namespace mutation
