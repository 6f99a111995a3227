// SPDX-License-Identifier: MIT
//
// Dynamic tags: allocation, their range, freeing, use and ownership. The frame frees the
// packet, then deregisters the clients, and with them whatever tags they still hold.
#include <errno.h>
#include <stdint.h>

#include "fixtures/frame.h"
#include "kelapi/client.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "kelapi/role.h"

TEST_FILE(kel_dyn_tag, null_client)

namespace {

constexpr uint32_t TAG_COUNT = 100;
constexpr kel_tag NEVER_ALLOCATED = 0x20064;

struct dyn_tag_objects {
    kel_packet packet;
    kel_client client;
    kel_client second_client;
};

void release(dyn_tag_objects &held)
{
    if (held.packet) free_packet(held.packet);
    cleanup_client(held.client);
    cleanup_client(held.second_client);
}

constexpr case_frame<dyn_tag_objects> with_tags = {nullptr, release};

uint32_t register_client(kel_client *client)
{
    return kel_register_client(client, "client1", KEL_ROLE_ACTIVE, 6);
}

bool in_static_range(kel_tag tag)
{
    const int32_t number = static_cast<int32_t>(tag);

    return number >= 0 && number < static_cast<int32_t>(KEL_FIRST_DYNAMIC_TAG);
}

} // namespace

CASE(kel_dyn_tag, null_client, with_nothing)
{
    CHECK_LOCATED(kel_alloc_tag(0, nullptr, "dyn. tag") != 0, "kel_alloc_tag failed");
    return api_msg;
}

CASE(kel_dyn_tag, no_space, with_tags)
{
    CHECK_LOCATED(register_client(&held.client) == 0, "register_client failed");
    CHECK_LOCATED(kel_alloc_tag(held.client, nullptr, "dyn. tag") != 0, "kel_alloc_tag failed");
    return api_msg;
}

// The tag is left to the client's deregistration.
CASE(kel_dyn_tag, free_client, with_tags)
{
    kel_tag tag = 0;

    CHECK_LOCATED(register_client(&held.client) == 0, "register_client failed");
    CHECK_LOCATED(kel_alloc_tag(held.client, &tag, "dyn. tag") == 0, "kel_alloc_tag failed");
    CHECK_LOCATED(kel_register_tag(held.client, tag) == 0, "kel_register_tag failed");
    return api_msg;
}

CASE(kel_dyn_tag, free_static_tag, with_tags)
{
    CHECK_LOCATED(register_client(&held.client) == 0, "register_client failed");
    CHECK_LOCATED(kel_free_tag(held.client, 2) != 0, "kel_free_tag failed");
    return api_msg;
}

CASE(kel_dyn_tag, alloc_dyn_tags, with_tags)
{
    kel_tag tags[TAG_COUNT] = {};

    CHECK_LOCATED(register_client(&held.client) == 0, "register_client failed");
    for (kel_tag &tag : tags) {
        CHECK_LOCATED(kel_alloc_tag(held.client, &tag, "dyn. tag") == 0, "kel_alloc_tag failed");
        CHECK_LOCATED(!in_static_range(tag), "dynamic range check");
    }
    for (kel_tag tag : tags) {
        CHECK_LOCATED(kel_free_tag(held.client, tag) == 0, "kel_free_tag failed");
    }
    return api_msg;
}

CASE(kel_dyn_tag, sendrecv_dyn_tag, with_tags)
{
    kel_tag tag = 0;

    CHECK_LOCATED(register_client(&held.client) == 0, "register_client failed");
    CHECK_LOCATED(kel_alloc_tag(held.client, &tag, "dyn. tag") == 0, "kel_alloc_tag failed");
    CHECK_LOCATED(kel_register_tag(held.client, tag) == 0, "register_tag_failed");
    held.packet = kel_get_packet(held.client, 0, 512, 1, nullptr);
    CHECK_LOCATED(held.packet != 0, "kel_get_packet failed");
    CHECK_LOCATED(kel_set_tag(held.packet, tag) == 0, "set_tag failed");
    CHECK_LOCATED(kel_send(held.client, held.packet) == 0, "kel_send failed");
    // The received packet is the packet sent: one handle is freed.
    CHECK_LOCATED(kel_recv(held.client) != 0, "kel_recv failed");
    CHECK_LOCATED(kel_free_packet(held.packet) == 0, "kel_free_pkthdr failed"); // sic
    held.packet = 0;
    CHECK_LOCATED(kel_free_tag(held.client, tag) == 0, "kel_deregister_tag failed"); // sic
    return api_msg;
}

CASE(kel_dyn_tag, invalid_dyn_tag, with_client)
{
    CHECK_LOCATED(kel_register_tag(held.client, NEVER_ALLOCATED) == EINVAL,
                  "register invalid dynamic tag");
    return api_msg;
}

CASE(kel_dyn_tag, reg_someone_tag, with_tags)
{
    kel_tag tag = 0;

    create_default_client(&held.client); // unchecked, on purpose
    CHECK_LOCATED(create_default_client(&held.second_client) == 0, "register clients failed");
    CHECK_LOCATED(kel_alloc_tag(held.client, &tag, "my new tag") == 0, "kel_alloc_tag failed");
    CHECK_LOCATED(kel_register_tag(held.client, tag) == 0, "register tag failed");
    CHECK_LOCATED(kel_register_tag(held.second_client, tag) != 0, "register someone's tag succeed");
    CHECK_LOCATED(kel_free_tag(held.client, tag) == 0, "kel_free_tag failed");
    return api_msg;
}
