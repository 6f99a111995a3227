// SPDX-License-Identifier: MIT
#include "tools/explore/model.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <vector>

#include "tools/common/unique_fd.h"
#include "tools/common/usage_error.h"

namespace explore {

namespace {

// The loader gives a file once, whoever asks. A copy of it is another library.
std::string copy_of(const std::string &path)
{
    const tools::unique_fd from(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int to = memfd_create("libkel.so", MFD_CLOEXEC); // for as long as the process lives
    if (from.get() < 0 || to < 0) throw tools::usage_error("cannot copy " + path);
    std::array<char, 65536> piece;
    for (ssize_t count = 0; (count = read(from.get(), piece.data(), piece.size())) > 0;) {
        if (write(to, piece.data(), static_cast<std::size_t>(count)) != count) {
            throw tools::usage_error("no memory for a copy of " + path);
        }
    }
    return "/proc/self/fd/" + std::to_string(to);
}

kel_functions functions_of(const std::string &path)
{
    void *handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) throw tools::usage_error(dlerror());
    kel_functions found;
#define OPERATION(name, ...)                                                                       \
    found.name = reinterpret_cast<decltype(found.name)>(dlsym(handle, #name));
#include "kelapi/operations.def"
    return found;
}

// The library's daemon lives as long as any client, and takes longer to start than a sequence.
void keep_awake(const kel_functions &kel)
{
    kel_client client = 0;
    kel.kel_register_client(&client, "keeps awake", KEL_ROLE_ALWAYS, 0);
}

// What a library reads when it is loaded stands in this process's environment.
std::string prepared(const sequence::library_setup &setup)
{
    set_environment(setup);
    return setup.path;
}

} // namespace

model::model(const std::string &reference, const sequence::configuration &profile)
    : right_(prepared(sequence::content_setup(sequence::library_file(reference), profile))),
      shadow_path_(copy_of(sequence::library_file(reference))),
      shadow_(prepared(sequence::shadow_setup(shadow_path_, profile))),
      asked_(functions_of(sequence::library_file(reference)))
{
    for (const kel_functions &each : {asked_, functions_of(shadow_path_)}) keep_awake(each);
}

} // namespace explore
