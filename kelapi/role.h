/* SPDX-License-Identifier: MIT */
/*
 * Sink roles. A client's role decides whether it shares its tags and whether it receives
 * their packets:
 *
 *   ALWAYS   holds its tags alone and receives their packets; its role cannot be changed.
 *   ACTIVE   receives the packets of its tags.
 *   STANDBY  does not receive the packets of its tags.
 *
 * Clients that kel_register_client registered in role STANDBY, whatever their role is now,
 * share their tags: up to KEL_SINKS_PER_TAG of them may hold the same tag. A packet
 * sent to it goes to the ACTIVE holder that became ACTIVE most recently, and when that one
 * becomes STANDBY or gives up the tag, to the one before it; without an ACTIVE holder
 * kel_send fails with ENOENT.
 */
#ifndef KELAPI_ROLE_H
#define KELAPI_ROLE_H

#include "kelapi/types.h"

#define KEL_ROLE_ALWAYS 0u
#define KEL_ROLE_ACTIVE 1u
#define KEL_ROLE_STANDBY 2u

#define KEL_SINKS_PER_TAG 8u

/*
 * Changes the client's role between ACTIVE and STANDBY. On failure the role is unchanged.
 * To be given the role that it has changes nothing and is no error.
 * Errors: EINVAL for a client that is not registered and an unknown role; EPERM for a
 * change from or to ALWAYS.
 */
KEL_API uint32_t kel_client_ha_role_notify(kel_client client, uint32_t role);

#endif
