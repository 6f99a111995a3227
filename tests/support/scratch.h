// SPDX-License-Identifier: MIT
//
// A folder of a test's own: tests run beside each other, and so do whole runs of them.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace support {

class scratch_folder {
public:
    scratch_folder()
    {
        std::string name = std::filesystem::temp_directory_path() / "tavor-test-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder " + name);
        folder = name;
    }
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;
    ~scratch_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    const std::filesystem::path &path() const { return folder; }
    // Of that name in it, whether or not it is there.
    std::string file(const std::string &name) const { return folder / name; }

private:
    std::filesystem::path folder;
};

} // namespace support
