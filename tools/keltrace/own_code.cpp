// SPDX-License-Identifier: MIT
//
// The main program's executable segments: the loader lists the main program first.
#include "tools/keltrace/own_code.h"

#include <algorithm>
#include <link.h>

namespace keltrace {

namespace own_code {

constinit std::atomic<std::uintptr_t> begin{0};
constinit std::atomic<std::uintptr_t> end{0};

namespace {

struct range {
    std::uintptr_t begin = UINTPTR_MAX;
    std::uintptr_t end = 0;
};

int visit(dl_phdr_info *object, std::size_t, void *data)
{
    auto *code = static_cast<range *>(data);
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto &segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || !(segment.p_flags & PF_X)) continue;
        const std::uintptr_t start = object->dlpi_addr + segment.p_vaddr;
        code->begin = std::min(code->begin, start);
        code->end = std::max(code->end, start + segment.p_memsz);
    }
    return 1;
}

} // namespace

void find()
{
    range code;
    dl_iterate_phdr(visit, &code);
    begin.store(code.begin, std::memory_order_relaxed);
    end.store(code.end, std::memory_order_release);
}

} // namespace own_code

} // namespace keltrace
