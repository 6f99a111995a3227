// SPDX-License-Identifier: MIT
//
// Registering clients and tags. Every case registers the clients that it needs by itself;
// the frame releases the tags of the first client, then the clients.
#include <errno.h>
#include <stdint.h>

#include "fixtures/frame.h"
#include "kelapi/client.h"
#include "kelapi/role.h"

TEST_FILE(kel_reg_client, null_client_handle)

namespace {

constexpr uint32_t CLIENT_LIMIT = 50;
constexpr kel_tag FIRST_OF_MANY_TAGS = 100;
constexpr kel_tag LAST_OF_MANY_TAGS = 109;
constexpr kel_tag OWNED_TAG = 99;

struct registrations {
    kel_tag first_tag; // held by the first client, with the following tag_count - 1 ones
    uint32_t tag_count;
    kel_client client;
    kel_client second_client;
    kel_client many_clients[CLIENT_LIMIT];
};

void release(registrations &held)
{
    for (uint32_t i = 0; i < held.tag_count; i++) {
        kel_deregister_tag(held.client, held.first_tag + i);
    }
    cleanup_client(held.client);
    cleanup_client(held.second_client);
    for (kel_client client : held.many_clients) {
        cleanup_client(client);
    }
}

constexpr case_frame<registrations> with_registrations = {nullptr, release};

uint32_t register_active_client(kel_client *client)
{
    return kel_register_client(client, "client1", KEL_ROLE_ACTIVE, 6);
}

uint32_t register_always_client(kel_client *client, const char *name)
{
    return kel_register_client(client, name, KEL_ROLE_ALWAYS, 32);
}

void hold_tag(registrations &held, kel_tag tag)
{
    held.first_tag = tag;
    held.tag_count = 1;
}

} // namespace

CASE(kel_reg_client, null_client_handle, with_nothing)
{
    CHECK_LOCATED(register_active_client(nullptr) != 0, "register_client failed");
    CHECK_LOCATED(kel_deregister_client(0) != 0, "deregister_client failed");
    return api_msg;
}

CASE(kel_reg_client, reg_dereg_client, with_registrations)
{
    CHECK_LOCATED(register_active_client(&held.client) == 0, "register_client failed");
    CHECK_LOCATED(kel_deregister_client(held.client) == 0, "deregister_client failed");
    held.client = 0;
    return api_msg;
}

CASE(kel_reg_client, reg_dereg_client_null_name, with_registrations)
{
    CHECK_LOCATED(kel_register_client(&held.client, nullptr, KEL_ROLE_ACTIVE, 6) == 0,
                  "kel_register_client failed");
    CHECK_LOCATED(kel_deregister_client(held.client) == 0, "deregister_client failed");
    held.client = 0;
    return api_msg;
}

CASE(kel_reg_client, getfd_client, with_registrations)
{
    CHECK_LOCATED(register_active_client(&held.client) == 0, "kel_register_client failed");
    CHECK_LOCATED(kel_getfd(held.client) > 0, "get_fd_failed");
    CHECK_LOCATED(kel_deregister_client(held.client) == 0, "deregister_client failed");
    held.client = 0;
    return api_msg;
}

CASE(kel_reg_client, getfd_null_client, with_nothing)
{
    CHECK_LOCATED(kel_getfd(0) == -1, "kel_getfd failed");
    return api_msg;
}

CASE(kel_reg_client, reg_dereg_mul_client, with_registrations)
{
    uint32_t registered = 0;
    while (registered < CLIENT_LIMIT &&
           kel_register_client(&held.many_clients[registered], "client", KEL_ROLE_ACTIVE, 6) == 0) {
        registered++;
    }
    if (registered == 0) {
        skip_test = 1;
        return nullptr;
    }

    uint32_t deregistered = 0;
    for (uint32_t i = 0; i < registered; i++) {
        if (kel_deregister_client(held.many_clients[i]) == 0) {
            held.many_clients[i] = 0;
            deregistered++;
        }
    }
    CHECK_LOCATED(deregistered == registered, "kel_reg_dereg_mul_client_failed");
    return api_msg;
}

CASE(kel_reg_tag, reg_dereg_tag, with_registrations)
{
    constexpr kel_tag TAG = 800;

    CHECK_LOCATED(register_active_client(&held.client) == 0, "kel_register_client failed");
    CHECK_LOCATED(kel_register_tag(held.client, TAG) == 0, "kel_register_tag failed");
    hold_tag(held, TAG);
    CHECK_LOCATED(kel_deregister_tag(held.client, TAG) == 0, "kel_deregister_tag failed");
    held.tag_count = 0;
    return api_msg;
}

CASE(kel_reg_tag, is_tag_registered, with_registrations)
{
    constexpr kel_tag TAG = 5678;
    constexpr kel_tag OTHER_TAG = 2989;

    CHECK_LOCATED(register_active_client(&held.client) == 0, "kel_register_client failed");
    CHECK_LOCATED(kel_is_tag_registered(0, TAG) == 0, "invalid client test");
    CHECK_LOCATED(kel_register_tag(held.client, TAG) == 0, "kel_register_tag failed");
    hold_tag(held, TAG);
    CHECK_LOCATED(kel_is_tag_registered(held.client, OTHER_TAG) == 0, "invalid tag test");
    CHECK_LOCATED(kel_is_tag_registered(held.client, TAG) == 1, "valid tag test");
    CHECK_LOCATED(kel_is_tag_registered(0, TAG) == 1, "valid tag test");
    return api_msg;
}

CASE(kel_reg_tag, reg_dereg_multi_tags, with_registrations)
{
    CHECK_LOCATED(register_active_client(&held.client) == 0, "kel_register_client failed");

    held.first_tag = FIRST_OF_MANY_TAGS;
    for (kel_tag tag = FIRST_OF_MANY_TAGS; tag <= LAST_OF_MANY_TAGS; tag++) {
        CHECK_LOCATED(kel_register_tag(held.client, tag) == 0, "kel_register_tag failed");
        held.tag_count++;
    }
    for (kel_tag tag = FIRST_OF_MANY_TAGS; tag <= LAST_OF_MANY_TAGS; tag++) {
        // sic
        CHECK_LOCATED(kel_deregister_tag(held.client, tag) == 0, "kel_register_tag failed");
        held.first_tag++;
        held.tag_count--;
    }
    return api_msg;
}

CASE(kel_reg_tag, dereg_bogus_tag, with_registrations)
{
    constexpr kel_tag NOT_REGISTERED = 5;

    CHECK_LOCATED(register_active_client(&held.client) == 0, "kel_register_client failed");
    // sic
    CHECK_LOCATED(kel_deregister_tag(held.client, NOT_REGISTERED) != 0, "kel_register_tag failed");
    return api_msg;
}

CASE(kel_reg_tag, reg_tag_null_client, with_nothing)
{
    CHECK_LOCATED(kel_register_tag(0, 2) != 0, "kel_register_tag failed");
    CHECK_LOCATED(kel_deregister_tag(0, 2) != 0, "kel_register_tag failed"); // sic
    return api_msg;
}

CASE(kel_reg_tag, invalid_tag, with_registrations)
{
    CHECK_LOCATED(register_active_client(&held.client) == 0, "kel_register_client failed");
    CHECK_LOCATED(kel_register_tag(held.client, 0) == EINVAL, "kel_register_tag failed");
    // sic
    CHECK_LOCATED(kel_deregister_tag(held.client, 0) == EINVAL, "kel_register_tag failed");
    return api_msg;
}

CASE(kel_reg_tag, dereg_someone_tag, with_registrations)
{
    CHECK_LOCATED(register_always_client(&held.client, "client1") == 0,
                  "kel_register_client failed");
    CHECK_LOCATED(register_always_client(&held.second_client, "client2") == 0,
                  "kel_register_client failed");
    CHECK_LOCATED(kel_register_tag(held.client, OWNED_TAG) == 0, "kel_register_tag failed");
    hold_tag(held, OWNED_TAG);
    CHECK_LOCATED(kel_deregister_tag(held.second_client, OWNED_TAG) == EACCES,
                  "de-register someone's tag succeed");
    return api_msg;
}

CASE(kel_reg_tag, reg_registered_tag, with_registrations)
{
    CHECK_LOCATED(register_always_client(&held.client, "client1") == 0,
                  "kel_register_client failed");
    CHECK_LOCATED(kel_register_tag(held.client, OWNED_TAG) == 0, "kel_register_tag failed");
    hold_tag(held, OWNED_TAG);
    CHECK_LOCATED(kel_register_tag(held.client, OWNED_TAG) != 0, "kel_register_tag failed");
    return api_msg;
}

// Outside the frame: the handle stays in use after its client is gone, and nothing is
// deregistered at the end.
CASE(kel_reg_tag, invalid_client, with_nothing)
{
    kel_client client = 0;

    CHECK_LOCATED(kel_register_tag(0, OWNED_TAG) != 0,
                  "null kel client reg-tag succedd"); // sic
    CHECK_LOCATED(register_always_client(&client, "client1") == 0, "kel_register_client failed");
    CHECK_LOCATED(kel_deregister_client(client) == 0, "kel_deregister_client failed");
    CHECK_LOCATED(kel_register_tag(client, OWNED_TAG) != 0,
                  "invalid kel client reg-tag succedd"); // sic
    return api_msg;
}
