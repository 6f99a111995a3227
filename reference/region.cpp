// SPDX-License-Identifier: MIT
//
// Regions and the subregions that lie in them: declared, queried, deleted. Their memory is
// never touched, so none is set aside for them.

#include "reference/region.h"

#include <cerrno>
#include <iterator>

#include "reference/caller_memory.h"
#include "reference/state.h"

namespace kel_reference {

namespace {

constexpr std::uint32_t BUFFER_MEMORY = 10;
constexpr std::uint32_t KERNEL_MEMORY = 11;
constexpr std::uint32_t MAX_REGION_SIZE = 256u << 20;

template <typename record> int read_record(const void *argument, record &read)
{
    return read_caller_memory(argument, &read, sizeof read) ? 0 : EFAULT;
}

// Completes the caller's record, of which the id is given.
template <typename record> int query(const std::map<std::uint32_t, record> &records, void *argument)
{
    std::uint32_t id = 0;
    if (const int error = read_record(argument, id)) return error;
    const auto found = records.find(id);
    if (found == records.end()) return EINVAL;
    return write_caller_memory(argument, &found->second, sizeof found->second) ? 0 : EFAULT;
}

// Any client may register: the device does not tell its clients apart.
int register_client(const void *argument)
{
    kel_client client = 0;
    return read_record(argument, client);
}

int add_region(state &library, const void *argument)
{
    kel_region_desc region{};
    if (const int error = read_record(argument, region)) return error;
    const bool is_type_known =
        region.memory_type == BUFFER_MEMORY || region.memory_type == KERNEL_MEMORY;
    if (region.size == 0 || !is_type_known) return EINVAL;
    if (region.size > MAX_REGION_SIZE) return ENOMEM;
    return library.regions.emplace(region.id, region).second ? 0 : EEXIST;
}

int delete_region(state &library, const void *argument)
{
    std::uint32_t id = 0;
    if (const int error = read_record(argument, id)) return error;
    if (library.regions.erase(id) == 0) return EINVAL;
    std::erase_if(library.subregions, [&](const auto &each) { return each.second.parent == id; });
    return 0;
}

std::uint64_t bytes_left(const state &library, const kel_region_desc &region)
{
    std::uint64_t left = region.size;
    for (const auto &[id, subregion] : library.subregions) {
        if (subregion.parent == region.id) left -= subregion.size;
    }
    return left;
}

int add_subregion(state &library, const void *argument)
{
    kel_subregion_desc subregion{};
    if (const int error = read_record(argument, subregion)) return error;
    const auto parent = library.regions.find(subregion.parent);
    if (subregion.size == 0 || parent == library.regions.end()) return EINVAL;
    if (library.subregions.contains(subregion.id)) return EEXIST;
    if (subregion.size > bytes_left(library, parent->second)) return ENOSPC;
    library.subregions.emplace(subregion.id, subregion);
    return 0;
}

int delete_subregion(state &library, const void *argument)
{
    std::uint32_t id = 0;
    if (const int error = read_record(argument, id)) return error;
    return library.subregions.erase(id) == 0 ? EINVAL : 0;
}

} // namespace

int region_request(unsigned long request, void *argument)
{
    locked_state library;
    switch (request) {
    case KEL_IOCTL_REGISTER_CLIENT:
        return register_client(argument);
    case KEL_IOCTL_ADD_REGION:
        return add_region(*library, argument);
    case KEL_IOCTL_DELETE_REGION:
        return delete_region(*library, argument);
    case KEL_IOCTL_ADD_SUBREGION:
        return add_subregion(*library, argument);
    case KEL_IOCTL_DELETE_SUBREGION:
        return delete_subregion(*library, argument);
    case KEL_IOCTL_GET_REGION_INFO:
        return query(library->regions, argument);
    case KEL_IOCTL_GET_SUBREGION_INFO:
        return query(library->subregions, argument);
    default:
        return ENOTTY;
    }
}

} // namespace kel_reference
