// SPDX-License-Identifier: MIT
//
// Build identification. The records are read by nobody in the program: they are found in
// the file by their markers, so neither compiler nor linker may drop them.
#include "runner/tests.h"

#ifndef TAVOR_TARGET_PATH
#define TAVOR_TARGET_PATH "unknown"
#endif
#ifndef TAVOR_TREE_LOCATION
#define TAVOR_TREE_LOCATION "unknown"
#endif
#ifndef TAVOR_IMAGE_NAME
#define TAVOR_IMAGE_NAME "tavor"
#endif

#define KEPT_RECORD __attribute__((used, retain))

KEPT_RECORD char tgt_data[BUILD_RECORD_SIZE] = "@@TGT@@" TAVOR_TARGET_PATH;
KEPT_RECORD char tree_loc[BUILD_RECORD_SIZE] = "@@TREE@@" TAVOR_TREE_LOCATION;
KEPT_RECORD char image_name[BUILD_RECORD_SIZE] = "@@IMAGE@@" TAVOR_IMAGE_NAME;
