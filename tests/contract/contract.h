// SPDX-License-Identifier: MIT
//
// What the contract tests share: a fixture that ends every test with a census, owners of
// handles, and short forms for the calls that every test makes.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kelapi/kel.h"
#include "reference/census.h"

namespace contract {

using bytes = std::vector<std::uint8_t>;
using namespace std::chrono_literals;

constexpr std::uint32_t BAD_CLIENT = 0xdeadface;
constexpr std::uint32_t BAD_BUFFER = 0xfdb91234;
// None of these ever is a handle of any kind.
constexpr std::uint32_t BAD_HANDLES[] = {KEL_BAD_HANDLE, BAD_CLIENT, BAD_BUFFER, 0xbeef,
                                         0xdeadbeef};

kel_reference_census take_census();
// All of it, readable, for comparison and for messages.
std::string describe(const kel_reference_census &census);

// Nothing may live when a test has ended, nor may a deregistration have had to release
// anything, unless the test says so.
class test : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    void leaves_objects_to_deregistration() { leaves_objects = true; }

    std::uint32_t released_before = 0;

private:
    bool leaves_objects = false;
};

// "EINVAL" rather than 22.
std::string error_text(std::uint32_t error);
testing::AssertionResult has_error(const char *call, const char *, std::uint32_t error,
                                   std::uint32_t expected);

#define EXPECT_ERROR(call, expected)                                                               \
    EXPECT_PRED_FORMAT2(contract::has_error, call, static_cast<std::uint32_t>(expected))
#define EXPECT_OK(call) EXPECT_ERROR(call, 0)
#define ASSERT_OK(call) ASSERT_PRED_FORMAT2(contract::has_error, call, 0u)

// Releases the handle at the end of its life, unless it was released or given away before.
template <std::uint32_t (*release)(std::uint32_t)> class owned {
public:
    owned() = default;
    explicit owned(std::uint32_t owned_handle) : handle(owned_handle) {}
    owned(owned &&moved) noexcept : handle(std::exchange(moved.handle, 0)) {}
    owned &operator=(owned &&moved) noexcept
    {
        std::swap(handle, moved.handle);
        return *this;
    }
    ~owned()
    {
        if (!handle) return;
        const std::uint32_t error = release(handle);
        EXPECT_TRUE(error == 0 || error == KEL_LOW_THRESHOLD_REACHED) << error_text(error);
    }

    operator std::uint32_t() const { return handle; }
    // For operations that replace the handle, or store one.
    std::uint32_t *address() { return &handle; }
    // It is somebody else's now.
    std::uint32_t give() { return std::exchange(handle, 0); }

private:
    std::uint32_t handle = 0;
};

using client = owned<kel_deregister_client>;
using packet = owned<kel_free_packet>;
using buffer = owned<kel_free_bufchain>;

client new_client(std::uint32_t role = KEL_ROLE_ALWAYS, std::uint32_t depth = 32);

// Both are deregistered before the test looks at what is left.
class test_with_two_clients : public test {
protected:
    client owner = new_client();
    client other = new_client();
    void TearDown() override;
};

// A client that receives `tag`.
client new_receiver(kel_tag tag, std::uint32_t role = KEL_ROLE_ALWAYS, std::uint32_t depth = 32);
packet new_packet(kel_client owner, std::uint32_t size = 1500, std::uint8_t contiguous = 1,
                  kel_bufgroup group = 0);
buffer new_buffer(kel_client owner, std::uint32_t size = 1500, std::uint8_t contiguous = 1,
                  kel_bufgroup group = 0);
packet new_tagged_packet(kel_client owner, kel_tag tag, std::uint32_t size = 128,
                         bool needs_signal = true);
// A client's registration with a group, ended with its life.
class registration {
public:
    registration(kel_client registered_client, const char *name);
    registration(kel_client registered_client, kel_bufgroup registered_group);
    registration(registration &&moved) noexcept
        : owner(moved.owner), group(std::exchange(moved.group, 0))
    {
    }
    ~registration();
    operator kel_bufgroup() const { return group; }

private:
    kel_client owner;
    kel_bufgroup group = 0;
};
registration new_reserved(kel_client owner, const char *name, std::uint32_t element_size,
                          std::uint32_t element_count, std::uint32_t head_room = 0,
                          std::uint32_t no_poison = 0);

// Bytes that differ from place to place and from seed to seed.
bytes pattern(std::size_t size, std::uint32_t seed = 1);
bytes joined(const bytes &first, const bytes &second);
bytes part(const bytes &whole, std::size_t offset, std::size_t size);

void write(kel_packet target, const bytes &data);
void write_chain(kel_buffer target, const bytes &data);
bytes read(kel_packet source);
bytes read_chain(kel_buffer source);
std::uint32_t chain_length(kel_buffer head);
std::uint32_t buffer_length(kel_buffer single);
const std::uint8_t *data_start(kel_buffer single);

struct offsets {
    std::uint32_t network = 0;
    std::uint32_t transport = 0;
    std::uint32_t app = 0;
    friend bool operator==(const offsets &, const offsets &) = default;
    friend std::ostream &operator<<(std::ostream &stream, const offsets &printed);
};
void set_offsets(kel_packet target, const offsets &values);
offsets offsets_of(kel_packet source);

struct usage {
    std::uint32_t buffers = 0;
    std::uint32_t bytes = 0;
    friend bool operator==(const usage &, const usage &) = default;
    friend std::ostream &operator<<(std::ostream &stream, const usage &printed);
};
usage usage_of_client(kel_client asked);
usage usage_of_group(kel_client asked, kel_bufgroup group);

// What select says of the client's descriptor within `timeout`.
bool is_readable(kel_client asked, std::chrono::microseconds timeout = 0us);
bool is_exceptional(kel_client asked, std::chrono::microseconds timeout = 0us);

// The event that a wait of at most `timeout` reports.
kel_event next_event(kel_client asked, std::chrono::microseconds timeout = 0us);

} // namespace contract
