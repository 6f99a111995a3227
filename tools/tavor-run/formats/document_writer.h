// SPDX-License-Identifier: MIT
//
// An output that is a whole document at any time, written anew as results come.
#pragma once

#include <memory>
#include <string>

#include "tools/tavor-run/formats/writer.h"

namespace tavor_run {

using document_of = std::string (*)(const run_record &);

std::unique_ptr<writer> make_document_writer(const std::string &path, document_of document);

} // namespace tavor_run
