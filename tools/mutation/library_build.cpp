// SPDX-License-Identifier: MIT
#include "tools/mutation/library_build.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tools/mutation/making.h"

namespace mutation {

namespace fs = std::filesystem;

library_build::library_build(const fs::path &folder) : folder_(fs::absolute(folder))
{
    const auto commands = nlohmann::json::parse(read_text(folder_ / "compile_commands.json"));
    for (const auto &each : commands) {
        const std::string command = each.at("command");
        const std::size_t object = command.find("reference/CMakeFiles/kel.dir/");
        if (object == std::string::npos) continue;
        units_[each.at("file")] = {command,
                                   command.substr(object, command.find(' ', object) - object), ""};
    }
    if (units_.empty()) throw std::runtime_error(folder.string() + ": no reference library");
}

std::vector<std::string> library_build::sources() const
{
    std::vector<std::string> all;
    for (const auto &[source, how] : units_) all.push_back(source);
    return all;
}

bool library_build::compile(const unit &how, const std::string &source, const std::string &text,
                            const fs::path &into) const
{
    const fs::path changed = into / fs::path(source).filename();
    std::ofstream(changed) << text;
    std::string line = how.command;
    replace(line, " -c " + source, " -c " + changed.string());
    replace(line, " -o " + how.object, " -o " + (into / "changed.o").string());
    return succeeds(folder_, line + " -w -Wno-error -g0 2>/dev/null");
}

made library_build::make(const std::string &source, const std::string &text, const fs::path &into)
{
    unit &how = units_.at(source);
    {
        const std::lock_guard guard(lock_);
        if (how.code.empty()) {
            if (!compile(how, source, read_text(source), into)) {
                throw std::runtime_error(source + " does not compile");
            }
            how.code = read_text(into / "changed.o");
        }
    }
    if (!compile(how, source, text, into)) return made::nothing;
    if (read_text(into / "changed.o") == how.code) return made::same_code;
    std::string link = "c++ -shared -pthread -o " + (into / "libkel.so").string() +
                       " -Wl,-soname,libkel.so -Wl,--as-needed -static-libstdc++ -static-libgcc"
                       " -Wl,--version-script=" +
                       (fs::path(source).parent_path() / "libkel.map").string();
    for (const auto &[name, each] : units_) {
        link += " " + (name == source ? (into / "changed.o").string() : each.object);
    }
    if (!succeeds(folder_, link)) throw std::runtime_error("the library cannot be linked: " + link);
    return made::library;
}

} // namespace mutation
