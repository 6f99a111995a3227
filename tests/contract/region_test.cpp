// SPDX-License-Identifier: MIT
//
// The region device.

#include "tests/contract/contract.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

using namespace contract;

namespace {

class region_contract : public contract::test {
protected:
    int device = open(KEL_DEVICE, O_RDWR | O_CLOEXEC);

    void SetUp() override
    {
        contract::test::SetUp();
        ASSERT_GE(device, 0) << std::strerror(errno);
    }

    void TearDown() override
    {
        for (std::uint32_t id : {1u, 2u}) request(KEL_IOCTL_DELETE_REGION, &id);
        EXPECT_EQ(close(device), 0);
        contract::test::TearDown();
    }

    // 0, or the reason of the failure.
    std::uint32_t request(unsigned long number, void *argument) const
    {
        errno = 0;
        const int result = ioctl(device, number, argument);
        EXPECT_TRUE(result == 0 || result == -1) << result;
        EXPECT_EQ(result == 0, errno == 0);
        return static_cast<std::uint32_t>(errno);
    }
};

constexpr unsigned long WITH_RECORDS[] = {KEL_IOCTL_REGISTER_CLIENT,   KEL_IOCTL_ADD_REGION,
                                          KEL_IOCTL_DELETE_REGION,     KEL_IOCTL_ADD_SUBREGION,
                                          KEL_IOCTL_DELETE_SUBREGION,  KEL_IOCTL_GET_REGION_INFO,
                                          KEL_IOCTL_GET_SUBREGION_INFO};

TEST_F(region_contract, unreadable_addresses_fault)
{
    for (const unsigned long number : WITH_RECORDS) {
        for (const std::uintptr_t address : {std::uintptr_t{0xffffffff}, ~std::uintptr_t{0},
                                             std::uintptr_t{0}, std::uintptr_t{1}}) {
            EXPECT_ERROR(request(number, reinterpret_cast<void *>(address)), EFAULT)
                << std::hex << number;
        }
    }
}

TEST_F(region_contract, unknown_ids)
{
    kel_region_desc region{};
    region.id = 0xabcd;
    EXPECT_ERROR(request(KEL_IOCTL_GET_REGION_INFO, &region), EINVAL);
    EXPECT_ERROR(request(KEL_IOCTL_DELETE_REGION, &region), EINVAL);
    kel_subregion_desc subregion{};
    subregion.id = 0xdeadbeef;
    EXPECT_ERROR(request(KEL_IOCTL_GET_SUBREGION_INFO, &subregion), EINVAL);
    EXPECT_ERROR(request(KEL_IOCTL_DELETE_SUBREGION, &subregion), EINVAL);
}

TEST_F(region_contract, regions_and_subregions)
{
    kel_region_desc buffers{1, 10, 65536, {0, 0}, "KEL_TEST_BPA_MEM"};
    kel_region_desc kernel{2, 11, 4096, {0, 0}, "KEL_TEST_KMALLOC_MEM"};
    ASSERT_OK(request(KEL_IOCTL_ADD_REGION, &buffers));
    ASSERT_OK(request(KEL_IOCTL_ADD_REGION, &kernel));
    kel_subregion_desc subregion{7, 1, 4096, {512, 512}, {0, 0}, "sub"};
    ASSERT_OK(request(KEL_IOCTL_ADD_SUBREGION, &subregion));
    EXPECT_EQ(take_census().regions, 2u);
    EXPECT_EQ(take_census().subregions, 1u);

    kel_region_desc found{};
    found.id = 2;
    ASSERT_OK(request(KEL_IOCTL_GET_REGION_INFO, &found));
    EXPECT_EQ(std::memcmp(&found, &kernel, sizeof found), 0);
    kel_subregion_desc found_subregion{};
    found_subregion.id = 7;
    ASSERT_OK(request(KEL_IOCTL_GET_SUBREGION_INFO, &found_subregion));
    EXPECT_EQ(std::memcmp(&found_subregion, &subregion, sizeof found_subregion), 0);

    kel_subregion_desc orphan{8, 0xabcd, 4096, {512, 512}, {0, 0}, "orphan"};
    EXPECT_ERROR(request(KEL_IOCTL_ADD_SUBREGION, &orphan), EINVAL);
    std::uint32_t id = 7;
    EXPECT_OK(request(KEL_IOCTL_DELETE_SUBREGION, &id));
    id = 1;
    EXPECT_OK(request(KEL_IOCTL_DELETE_REGION, &id));
    EXPECT_ERROR(request(KEL_IOCTL_DELETE_REGION, &id), EINVAL);
    EXPECT_ERROR(request(KEL_IOCTL_GET_REGION_INFO, &buffers), EINVAL);
}

TEST_F(region_contract, record_at_the_end_of_readable_memory)
{
    // A word can be read here, a whole descriptor cannot.
    const long page = sysconf(_SC_PAGESIZE);
    auto *pages = static_cast<std::uint8_t *>(
        std::aligned_alloc(static_cast<std::size_t>(page), static_cast<std::size_t>(page)));
    std::memset(pages, 0, static_cast<std::size_t>(page));
    EXPECT_ERROR(request(KEL_IOCTL_GET_REGION_INFO, pages + page - 4), EINVAL);
    std::free(pages);
}

TEST_F(region_contract, unknown_requests_fail)
{
    kel_region_desc region{};
    EXPECT_NE(request(0x999, &region), 0u);
}

// Both forms that a program's open may be compiled to, and a relative one.
TEST_F(region_contract, opens_in_every_form)
{
    const int descriptors[] = {open(KEL_DEVICE, O_RDWR), open64(KEL_DEVICE, O_RDWR),
                               openat(AT_FDCWD, KEL_DEVICE, O_RDWR),
                               openat64(AT_FDCWD, KEL_DEVICE, O_RDWR)};
    for (const int each : descriptors) {
        ASSERT_GE(each, 0);
        kel_region_desc region{};
        region.id = 0xabcd;
        errno = 0;
        EXPECT_EQ(ioctl(each, KEL_IOCTL_GET_REGION_INFO, &region), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(close(each), 0);
    }
}

TEST_F(region_contract, other_paths_and_descriptors_are_the_systems)
{
    EXPECT_EQ(open("/dev/kel_not_there", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    const std::string created = "region_test.tmp";
    const int file = open(created.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    ASSERT_GE(file, 0);
    struct stat status {};
    EXPECT_EQ(fstat(file, &status), 0);
    EXPECT_EQ(status.st_mode & 0700, 0600u) << "the mode was lost";
    kel_region_desc region{};
    EXPECT_EQ(ioctl(file, KEL_IOCTL_GET_REGION_INFO, &region), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(close(file), 0);
    unlink(created.c_str());

    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    EXPECT_EQ(write(pipe_ends[1], "abc", 3), 3);
    int waiting = 0;
    EXPECT_EQ(ioctl(pipe_ends[0], FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 3);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

TEST_F(region_contract, closed_descriptor_is_forgotten)
{
    const int closed = open(KEL_DEVICE, O_RDWR | O_CLOEXEC);
    ASSERT_GE(closed, 0);
    EXPECT_EQ(close(closed), 0);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    EXPECT_EQ(null, closed) << "the number is not used again, so that nothing is shown";
    kel_region_desc region{};
    EXPECT_EQ(ioctl(null, KEL_IOCTL_GET_REGION_INFO, &region), -1);
    EXPECT_EQ(errno, ENOTTY);
    close(null);
}

} // namespace
