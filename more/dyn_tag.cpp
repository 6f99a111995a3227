// SPDX-License-Identifier: MIT
//
// Dynamic tags: freeing one ends its registration.
#include "fixtures/frame.h"
#include "kelapi/client.h"

TEST_FILE(kel_more_dyn_tag, free_registered_tag)

namespace {

struct tag_objects {
    kel_tag tag; // allocated
    kel_client client;
};

void release(tag_objects &held)
{
    if (held.tag) kel_free_tag(held.client, held.tag);
    cleanup_client(held.client);
}

constexpr case_frame<tag_objects> with_tag_owner = {register_default_client, release};

} // namespace

CASE(kel_more_dyn_tag, free_registered_tag, with_tag_owner)
{
    if (kel_alloc_tag(held.client, &held.tag, "more tag")) return "kel_alloc_tag failed";
    if (kel_register_tag(held.client, held.tag)) return "kel_register_tag failed";
    if (kel_is_tag_registered(held.client, held.tag) != 1) return "the tag is not registered";
    const kel_tag freed = held.tag;
    if (kel_free_tag(held.client, freed)) return "kel_free_tag failed";
    held.tag = 0;
    if (kel_is_tag_registered(held.client, freed)) return "the freed tag is still the client's";
    return kel_is_tag_registered(0, freed) ? "the freed tag is still registered" : nullptr;
}
