// SPDX-License-Identifier: MIT
//
// The reference library, built again with one source changed.
#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace mutation {

enum class made : std::uint8_t { library, same_code, nothing };

// May be used by several threads.
class library_build {
public:
    // How it is built is taken from the build folder. Throws std::runtime_error.
    explicit library_build(const std::filesystem::path &folder);

    // Paths of the sources.
    std::vector<std::string> sources() const;
    // As it was built.
    std::string library() const { return (folder_ / "lib/libkel.so").string(); }

    // Makes libkel.so in the folder with the text in place of the source. No library when the text
    // does not compile, or gives the machine code that the source gives.
    made make(const std::string &source, const std::string &text,
              const std::filesystem::path &into);

private:
    struct unit {
        std::string command;
        std::string object;
        std::string code; // compiled as the mutants are; empty: not yet
    };

    bool compile(const unit &how, const std::string &source, const std::string &text,
                 const std::filesystem::path &into) const;

    std::filesystem::path folder_;
    std::map<std::string, unit> units_; // by source
    std::mutex lock_;
};

} // namespace mutation
