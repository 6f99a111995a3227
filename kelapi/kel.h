/* SPDX-License-Identifier: MIT */
/* The whole libkel interface. */
#ifndef KELAPI_KEL_H
#define KELAPI_KEL_H

#include "kelapi/buf.h"
#include "kelapi/bufgroup.h"
#include "kelapi/bufgroup_reserved.h"
#include "kelapi/client.h"
#include "kelapi/event.h"
#include "kelapi/metadata.h"
#include "kelapi/packet.h"
#include "kelapi/region.h"
#include "kelapi/role.h"
#include "kelapi/tlv.h"
#include "kelapi/types.h"

#endif
