// SPDX-License-Identifier: MIT
//
// ELF files are read with care: they may be damaged or of another machine.
#include "tools/tavor-run/run/identity.h"

#include <elf.h>

#include <bit>
#include <cstring>
#include <optional>

#include "tools/common/loader.h"

namespace tavor_run {

namespace {

// The text from `at` up to a zero byte.
std::string text_at(const std::string &bytes, std::size_t at)
{
    if (at >= bytes.size()) {
        return "";
    }
    const std::size_t end = bytes.find('\0', at);
    return bytes.substr(at, end == std::string::npos ? end : end - at);
}

template <typename Record> std::optional<Record> record_at(const std::string &bytes, std::size_t at)
{
    if (at > bytes.size() || bytes.size() - at < sizeof(Record)) {
        return std::nullopt;
    }
    Record record;
    std::memcpy(&record, bytes.data() + at, sizeof record);
    return record;
}

std::string hexadecimal(const std::string &bytes)
{
    static constexpr std::string_view DIGITS = "0123456789abcdef";
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    return text;
}

struct elf32 {
    using header = Elf32_Ehdr;
    using segment = Elf32_Phdr;
    using dynamic = Elf32_Dyn;
};

struct elf64 {
    using header = Elf64_Ehdr;
    using segment = Elf64_Phdr;
    using dynamic = Elf64_Dyn;
};

template <typename Format> class elf_file {
public:
    explicit elf_file(const std::string &content) : bytes(content)
    {
        const auto header = record_at<typename Format::header>(bytes, 0);
        for (std::size_t i = 0; header && i < header->e_phnum; i++) {
            const auto segment = record_at<typename Format::segment>(
                bytes, header->e_phoff + i * header->e_phentsize);
            if (segment) {
                segments.push_back(*segment);
            }
        }
    }

    std::string build_id() const
    {
        for (const auto &segment : segments) {
            if (segment.p_type == PT_NOTE) {
                const std::string found = build_id_among(segment.p_offset, segment.p_filesz);
                if (!found.empty()) {
                    return found;
                }
            }
        }
        return "";
    }

    std::string soname() const
    {
        std::optional<std::size_t> name;
        std::optional<std::size_t> strings;
        for (const auto &segment : segments) {
            for (std::size_t at = 0; segment.p_type == PT_DYNAMIC && at < segment.p_filesz;
                 at += sizeof(typename Format::dynamic)) {
                const auto entry =
                    record_at<typename Format::dynamic>(bytes, segment.p_offset + at);
                if (!entry || entry->d_tag == DT_NULL) {
                    break;
                }
                if (entry->d_tag == DT_SONAME) {
                    name = entry->d_un.d_val;
                } else if (entry->d_tag == DT_STRTAB) {
                    strings = offset_of(entry->d_un.d_ptr);
                }
            }
        }
        return name && strings ? text_at(bytes, *strings + *name) : "";
    }

private:
    std::string build_id_among(std::size_t at, std::size_t size) const
    {
        const auto padded = [](std::size_t length) { return (length + 3) & ~std::size_t{3}; };
        for (const std::size_t end = at + size; at < end;) {
            const auto note = record_at<Elf32_Nhdr>(bytes, at); // the same in both formats
            if (!note) {
                break;
            }
            const std::size_t name = at + sizeof *note;
            const std::size_t content = name + padded(note->n_namesz);
            if (content > bytes.size()) {
                break;
            }
            if (note->n_type == NT_GNU_BUILD_ID && text_at(bytes, name) == "GNU") {
                return hexadecimal(bytes.substr(content, note->n_descsz));
            }
            at = content + padded(note->n_descsz);
        }
        return "";
    }

    std::optional<std::size_t> offset_of(std::size_t address) const
    {
        for (const auto &segment : segments) {
            if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
                address - segment.p_vaddr < segment.p_filesz) {
                return segment.p_offset + (address - segment.p_vaddr);
            }
        }
        return std::nullopt;
    }

    const std::string &bytes;
    std::vector<typename Format::segment> segments;
};

template <typename Format> void describe(const std::string &bytes, library_identity &identity)
{
    const elf_file<Format> file(bytes);
    identity.soname = file.soname();
    identity.build_id = file.build_id();
}

} // namespace

library_identity describe_library(const std::string &path, const std::string &bytes)
{
    library_identity identity;
    identity.path = path;
    if (bytes.size() < EI_NIDENT || !bytes.starts_with(ELFMAG)) {
        return identity;
    }
    identity.was_read = true;
    identity.is_reference = tools::is_reference_library(bytes);
    const int own_order = std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
    if (bytes[EI_DATA] != own_order) {
        return identity;
    }
    if (bytes[EI_CLASS] == ELFCLASS64) {
        describe<elf64>(bytes, identity);
    } else if (bytes[EI_CLASS] == ELFCLASS32) {
        describe<elf32>(bytes, identity);
    }
    return identity;
}

void read_build_records(const std::string &bytes, program_identity &identity)
{
    const auto record = [&](const std::string &marker) {
        const std::size_t at = bytes.find(marker);
        return at == std::string::npos ? "" : text_at(bytes, at + marker.size());
    };
    identity.target = record("@@TGT@@");
    identity.tree = record("@@TREE@@");
    identity.image = record("@@IMAGE@@");
}

} // namespace tavor_run
