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

sequence::configuration with_other_content(sequence::configuration profile)
{
    profile["poison_byte"] = "90";
    profile["first_tlv_byte"] = "165";
    return profile;
}

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

void obtain_and_free(const kel_functions &kel, kel_client client, kel_bufgroup group,
                     std::uint32_t size, std::size_t count)
{
    std::vector<kel_buffer> all(count);
    for (kel_buffer &each : all) each = kel.kel_get_buffer(client, group, size, 1, nullptr);
    for (const kel_buffer each : all) kel.kel_free_buffer(each);
}

// All memory that will be obtained was freed before, and holds what freed memory holds.
void use_memory(const kel_functions &kel)
{
    constexpr std::uint32_t SMALLEST = 128;
    constexpr std::uint32_t LARGEST = 65536;
    constexpr std::uint32_t OFTEN = 8192;
    constexpr std::size_t ENOUGH = 64;
    kel_client client = 0;
    kel.kel_register_client(&client, nullptr, KEL_ROLE_ALWAYS, 0);
    for (std::uint32_t size = SMALLEST; size < LARGEST; size *= 2) {
        obtain_and_free(kel, client, 0, size, size <= OFTEN ? ENOUGH : ENOUGH / 8);
    }
    kel_bufgroup group = 0;
    kel.kel_register_reserved_bufgroup(client, &group, "memory", OFTEN, ENOUGH, 0, 0);
    obtain_and_free(kel, client, group, OFTEN, ENOUGH);
    kel.kel_deregister_client(client);
}

// The library's daemon lives as long as any client, and takes longer to start than a sequence.
void keep_awake(const kel_functions &kel)
{
    kel_client client = 0;
    kel.kel_register_client(&client, "keeps awake", KEL_ROLE_ALWAYS, 0);
}

std::string loaded_with(const std::string &path, const sequence::configuration &profile)
{
    setenv("KEL_REFERENCE_OPTIONS", sequence::text_of(profile).c_str(), 1);
    unsetenv("KEL_REFERENCE_FAULTS");
    unsetenv("KEL_REFERENCE_LIST");
    return path;
}

} // namespace

model::model(const std::string &reference, const sequence::configuration &profile)
    : right_(loaded_with(sequence::library_file(reference), profile)),
      shadow_path_(copy_of(sequence::library_file(reference))),
      shadow_(loaded_with(shadow_path_, with_other_content(profile))),
      asked_(functions_of(sequence::library_file(reference)))
{
    for (const kel_functions &each : {asked_, functions_of(shadow_path_)}) {
        use_memory(each);
        keep_awake(each);
    }
}

} // namespace explore
