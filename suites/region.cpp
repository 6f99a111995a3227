// SPDX-License-Identifier: MIT
//
// The region device, driven directly. The frame opens it, and at the end deletes the
// regions of the suite and closes it.
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "kelapi/region.h"
#include "suites/case_helpers.h"

TEST_FILE(kel_region, invalid_test)

namespace {

constexpr uint32_t BPA_REGION = 0xABCD;
constexpr uint32_t KMALLOC_REGION = 0xAABB;
constexpr uint32_t UNKNOWN_SUBREGION = 0xDEADBEEF;

constexpr uint32_t BPA_MEMORY = 10;
constexpr uint32_t KMALLOC_MEMORY = 11;

constexpr uintptr_t INVALID_ADDRESS = 0xFFFFFFFF;

// Keeps what no code reads through the compiler and through the linker's collection of sections.
#if __has_attribute(retain)
#define KEPT [[gnu::used, gnu::retain]]
#else
#define KEPT [[gnu::used]]
#endif

// What the placeholder cases are about. No live case reads the tables.
KEPT const kel_region_desc regions[] = {
    {BPA_REGION, BPA_MEMORY, 0x200000, {0, 0}, "KEL_TEST_BPA_MEM"},
    {KMALLOC_REGION, KMALLOC_MEMORY, 0x800000, {0, 0}, "KEL_TEST_KMALLOC_MEM"},
};

KEPT const kel_subregion_desc subregions[] = {
    {0xABCE, BPA_REGION, 0x100000, {512, 512}, {0, 0}, "TEST-SUB1"},
    {0xABCF, BPA_REGION, 0x80000, {0, 0}, {0, 0}, "TEST-SUB2"},
    {0xABD0, BPA_REGION, 0x80000, {0, 0}, {0, 0}, "TEST-SUB3"},
};

KEPT const kel_region_desc invalid_regions[] = {
    {BPA_REGION, BPA_MEMORY, 0, {0, 0}, "size=0"},
    {BPA_REGION, 0xDEADBEEF, 0x200000, {0, 0}, "region=0xDEADBEEF"},
    {BPA_REGION, BPA_MEMORY, 0x20000000, {0, 0}, "ask for 512mb mem"},
};

KEPT const kel_subregion_desc invalid_subregions[] = {
    {0xABCE, 0xDEADBEEF, 0x100000, {2044, 2048}, {0, 0}, "invalid parent region"},
    {0xABCF, BPA_REGION, 0x400000, {512, 512}, {0, 0}, "invalid size"},
};

struct region_device {
    int32_t fd; // negative: not open
};

int32_t open_device()
{
    return open(KEL_DEVICE, O_RDWR);
}

int32_t register_client(int32_t fd, void *record)
{
    return ioctl(fd, KEL_IOCTL_REGISTER_CLIENT, record);
}

int32_t add_region(int32_t fd, void *region)
{
    return ioctl(fd, KEL_IOCTL_ADD_REGION, region);
}

int32_t delete_region(int32_t fd, void *region)
{
    return ioctl(fd, KEL_IOCTL_DELETE_REGION, region);
}

// The two requests for subregions that only placeholder cases would send.
[[maybe_unused]] int32_t add_subregion(int32_t fd, void *subregion)
{
    return ioctl(fd, KEL_IOCTL_ADD_SUBREGION, subregion);
}

[[maybe_unused]] int32_t delete_subregion(int32_t fd, void *subregion)
{
    return ioctl(fd, KEL_IOCTL_DELETE_SUBREGION, subregion);
}

int32_t get_region_info(int32_t fd, void *region)
{
    return ioctl(fd, KEL_IOCTL_GET_REGION_INFO, region);
}

int32_t get_subregion_info(int32_t fd, void *subregion)
{
    return ioctl(fd, KEL_IOCTL_GET_SUBREGION_INFO, subregion);
}

void release_regions(int32_t fd)
{
    if (fd < 0) {
        return;
    }

    kel_region_desc region = {};
    region.id = BPA_REGION;
    delete_region(fd, &region);
    region.id = KMALLOC_REGION;
    delete_region(fd, &region);
    close(fd);
}

const char *open_into(region_device &held)
{
    held.fd = open_device();
    CHECK_LOCATED(held.fd >= 0, "open kel device failed");
    return nullptr;
}

void release(region_device &held)
{
    release_regions(held.fd);
}

constexpr case_frame<region_device> with_device = {open_into, release};

// Whether the request on `argument` fails with the error.
bool request_fails(int32_t (*request)(int32_t fd, void *argument), int32_t fd, void *argument,
                   int error)
{
    errno = 0;
    return request(fd, argument) != 0 && errno == error;
}

bool address_is_refused(int32_t (*request)(int32_t fd, void *argument), int32_t fd)
{
    return request_fails(request, fd, reinterpret_cast<void *>(INVALID_ADDRESS), EFAULT);
}

} // namespace

CASE(kel_region, invalid_test, with_nothing, skip_case())

CASE(kel_region, invalid_get_info, with_device)
{
    kel_region_desc region = {};

    region.id = BPA_REGION;
    CHECK_LOCATED(request_fails(get_region_info, held.fd, &region, EINVAL),
                  "get region info succeed");
    return api_msg;
}

CASE(kel_region, normal_test, with_nothing, skip_case())
CASE(kel_region, dup_region_test, with_nothing, skip_case())

CASE(kel_region, invalid_mem_access_test, with_device)
{
    CHECK_LOCATED(address_is_refused(register_client, held.fd),
                  "register_client call failed to catch invalid address");
    CHECK_LOCATED(address_is_refused(add_region, held.fd),
                  "add_region call failed to catch invalid address");
    CHECK_LOCATED(address_is_refused(get_region_info, held.fd),
                  "get_region_info call failed to catch invalid address");
    CHECK_LOCATED(address_is_refused(get_subregion_info, held.fd),
                  "get_subregion_info call failed to catch invalid address");
    return api_msg;
}

CASE(kel_subregion, invalid_test, with_nothing, skip_case())

CASE(kel_subregion, invalid_get_info, with_device)
{
    kel_subregion_desc subregion = {};

    subregion.id = UNKNOWN_SUBREGION;
    CHECK_LOCATED(request_fails(get_subregion_info, held.fd, &subregion, EINVAL),
                  "get sub-region info succeed");
    return api_msg;
}

CASE(kel_subregion, normal_test, with_nothing, skip_case())
CASE(kel_subregion, dup_subregion_test, with_nothing, skip_case())
CASE(kel_subregion, enospc, with_nothing, skip_case())
