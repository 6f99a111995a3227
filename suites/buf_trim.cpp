// SPDX-License-Identifier: MIT
//
// Buffers, second half: trimming chains at either end, growing and duplicating them.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "fixtures/pattern.h"
#include "kelapi/buf.h"
#include "suites/buf_case.h"

TEST_FILE(kel_buf, trim_head_null_buf)

namespace {

constexpr uint32_t TRIMMED = 512;
constexpr uint32_t LEFT = STANDARD_SIZE - TRIMMED;
constexpr uint32_t REBUILD_SEED = 0x1234578; // same pattern: the low byte of PATTERN_A
constexpr uint32_t MAX_READ = 3 * STANDARD_SIZE;

// Bounds the walk along a chain that a faulty library makes endless.
constexpr uint32_t MAX_WALK = 4096;

using trim_function = uint32_t (*)(kel_buffer *buffer, uint32_t size);

uint32_t adjust_head(kel_buffer *buffer, uint32_t size)
{
    return kel_buf_adj(buffer, static_cast<int32_t>(size));
}

uint32_t adjust_tail(kel_buffer *buffer, uint32_t size)
{
    return kel_buf_adj(buffer, -static_cast<int32_t>(size));
}

struct trim_texts {
    const char *was_successful;
    const char *wrong_error;
    const char *not_consumed;
    const char *wrong_head;
    const char *wrong_length;
    const char *verify_failed;
};

constexpr trim_texts HEAD_TEXTS = {
    .was_successful = "buf_trim_head was successful",
    .wrong_error = "buf_trim_head wrong error",
    .not_consumed = "buf_trim_head didn't consume chain",
    .wrong_head = "buf_trim_head wrong return buf",
    .wrong_length = "buf_trim_head wrong length",
    .verify_failed = "buf_trim_head verify failed",
};

constexpr trim_texts TAIL_TEXTS = {
    .was_successful = "buf_trim_tail was successful",
    .wrong_error = "buf_trim_tail wrong error",
    .not_consumed = "buf_trim_tail didn't consume chain",
    .wrong_head = "buf_trim_tail wrong return buf",
    .wrong_length = "buf_trim_tail wrong length",
    .verify_failed = "buf_trim_tail verify failed",
};

constexpr trim_texts ADJ_TEXTS = {
    .was_successful = "buf_adj was successful",
    .wrong_error = "buf_adj wrong error",
    .not_consumed = "buf_adj didn't consume chain",
    .wrong_head = "buf_adj wrong return buf",
    .wrong_length = "buf_adj wrong length",
    .verify_failed = "buf_adj verify failed",
};

// The area that a trimmed chain is read into. It has room for all bytes that a read asks for: a
// trim that did nothing must not overrun it. Only the first STANDARD_SIZE bytes are cleared and
// judged.
struct data_area {
    uint8_t bytes[MAX_READ];
};

void clear_area(data_area *area)
{
    memset(area->bytes, 0, STANDARD_SIZE);
}

// Clears the area and writes the bytes that a trim of TRIMMED removes from the head.
void rebuild_area(data_area *area)
{
    clear_area(area);
    set_data(area->bytes, TRIMMED, REBUILD_SEED);
}

// Asks for `asked` bytes of the chain. It must have `left`, with the seed's pattern.
const char *check_short_read(kel_buffer buffer, data_area *area, uint32_t asked, uint32_t left,
                             uint32_t seed, const trim_texts &texts)
{
    uint32_t length = asked;

    if (kel_buf_get_data(buffer, 0, area->bytes, &length) != ENOSPC) {
        return "buf_get_data wrong error";
    }
    if (length != left) return texts.wrong_length;
    if (verify_data(area->bytes, static_cast<int32_t>(left), seed)) return texts.verify_failed;
    return nullptr;
}

const char *judge_null_buffer(trim_function trim, const trim_texts &texts)
{
    return judge_refusal(trim(nullptr, TRIMMED), EINVAL, texts.was_successful, texts.wrong_error);
}

const char *judge_too_big(held_objects &held, trim_function trim, const trim_texts &texts)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return judge_refusal(trim(&held.buffer, STANDARD_SIZE + 1), ERANGE, texts.was_successful,
                         texts.wrong_error);
}

const char *trim_all(held_objects &held, trim_function trim, const trim_texts &texts)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = trim(&held.buffer, STANDARD_SIZE)) return error_text(error);
    return held.buffer ? texts.not_consumed : nullptr;
}

// Gets the buffer that most cases trim, fills it, and trims it.
uint32_t trim_single(held_objects &held, trim_function trim, uint32_t size)
{
    if (uint32_t error = get_filled_buffer(held.client, STANDARD_SIZE, PATTERN_A, &held.buffer)) {
        return error;
    }
    return trim(&held.buffer, size);
}

const char *trim_zero(held_objects &held, trim_function trim, const trim_texts &texts)
{
    data_area area;
    uint32_t length = STANDARD_SIZE;

    if (uint32_t error = trim_single(held, trim, 0)) return error_text(error);
    clear_area(&area);
    if (uint32_t error = kel_buf_get_data(held.buffer, 0, area.bytes, &length)) {
        return error_text(error);
    }
    return verify_data(area.bytes, STANDARD_SIZE, PATTERN_A) ? texts.verify_failed : nullptr;
}

const char *trim_part_of_head(held_objects &held, trim_function trim, const trim_texts &texts)
{
    data_area area;
    uint32_t length = LEFT;

    if (uint32_t error = trim_single(held, trim, TRIMMED)) return error_text(error);
    rebuild_area(&area);
    if (uint32_t error = kel_buf_get_data(held.buffer, 0, area.bytes + TRIMMED, &length)) {
        return error_text(error);
    }
    return verify_data(area.bytes, STANDARD_SIZE, PATTERN_A) ? texts.verify_failed : nullptr;
}

const char *trim_part_of_tail(held_objects &held, trim_function trim, const trim_texts &texts)
{
    data_area area;

    if (uint32_t error = trim_single(held, trim, TRIMMED)) return error_text(error);
    rebuild_area(&area);
    return check_short_read(held.buffer, &area, STANDARD_SIZE, LEFT, PATTERN_A, texts);
}

// Appends a second filled buffer to the first and stores its handle.
uint32_t get_chain_of_two(held_objects &held, kel_buffer *second)
{
    if (uint32_t error = get_filled_buffer(held.client, STANDARD_SIZE, PATTERN_A, &held.buffer)) {
        return error;
    }
    if (uint32_t error =
            get_filled_buffer(held.client, STANDARD_SIZE, PATTERN_B, &held.second_buffer)) {
        return error;
    }
    *second = held.second_buffer;
    const uint32_t error = kel_buf_append(held.buffer, held.second_buffer);
    held.second_buffer = 0; // even if it was refused: the client's end frees it then
    return error;
}

uint32_t append_filled_buffer(held_objects &held, uint32_t seed, kel_buffer *added)
{
    if (uint32_t error = get_filled_buffer(held.client, STANDARD_SIZE, seed, &held.second_buffer)) {
        return error;
    }
    *added = held.second_buffer;
    if (uint32_t error = kel_buf_append(held.buffer, held.second_buffer)) return error;
    held.second_buffer = 0;
    return 0;
}

uint32_t get_chain_of_three(held_objects &held, kel_buffer *third)
{
    if (uint32_t error = get_filled_buffer(held.client, STANDARD_SIZE, PATTERN_A, &held.buffer)) {
        return error;
    }
    if (uint32_t error = append_filled_buffer(held, PATTERN_B, third)) return error;
    return append_filled_buffer(held, PATTERN_C, third);
}

// Trims held.buffer's chain of `size` bytes to one buffer, which must be `remaining` and hold the
// seed's pattern.
const char *trim_to_one(held_objects &held, trim_function trim, uint32_t size, kel_buffer remaining,
                        uint32_t seed, const trim_texts &texts)
{
    data_area area;

    if (uint32_t error = trim(&held.buffer, size - STANDARD_SIZE)) return error_text(error);
    if (held.buffer != remaining) return texts.wrong_head;
    clear_area(&area);
    return check_short_read(held.buffer, &area, size, STANDARD_SIZE, seed, texts);
}

const char *trim_first(held_objects &held, trim_function trim, const trim_texts &texts)
{
    kel_buffer second = 0;

    if (uint32_t error = get_chain_of_two(held, &second)) return error_text(error);
    return trim_to_one(held, trim, 2 * STANDARD_SIZE, second, PATTERN_B, texts);
}

const char *trim_first_two(held_objects &held, trim_function trim, const trim_texts &texts)
{
    kel_buffer third = 0;

    if (uint32_t error = get_chain_of_three(held, &third)) return error_text(error);
    return trim_to_one(held, trim, 3 * STANDARD_SIZE, third, PATTERN_C, texts);
}

const char *trim_last(held_objects &held, trim_function trim, const trim_texts &texts)
{
    kel_buffer second = 0;

    if (uint32_t error = get_chain_of_two(held, &second)) return error_text(error);
    return trim_to_one(held, trim, 2 * STANDARD_SIZE, held.buffer, PATTERN_A, texts);
}

const char *trim_last_two(held_objects &held, trim_function trim, const trim_texts &texts)
{
    kel_buffer third = 0;

    if (uint32_t error = get_chain_of_three(held, &third)) return error_text(error);
    return trim_to_one(held, trim, 3 * STANDARD_SIZE, held.buffer, PATTERN_A, texts);
}

const char *judge_add_head(kel_buffer *buffer)
{
    return judge_refusal(kel_buf_add_head(buffer, 512), EINVAL, "buf_add_head was successful",
                         "buf_add_head wrong error");
}

const char *judge_add_tail(kel_buffer buffer)
{
    return judge_refusal(kel_buf_add_tail(buffer, 512), EINVAL, "buf_add_tail was successful",
                         "buf_add_tail wrong error");
}

// Duplicates held.buffer; held.second_buffer is the duplicate. `error` is what the error
// variable holds before the call.
uint32_t duplicate(held_objects &held, uint32_t offset, uint32_t length, uint32_t error)
{
    held.second_buffer = kel_buf_duplicate(held.buffer, offset, length, &error);
    return error;
}

const char *judge_bad_stretch(held_objects &held, uint32_t offset, uint32_t length,
                              const char *text)
{
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    return duplicate(held, offset, length, 0) == EINVAL ? nullptr : text;
}

// The duplicate's first buffer must hold `expected` bytes.
const char *check_duplicate_length(const held_objects &held, uint32_t expected)
{
    uint32_t length = 0;

    if (uint32_t error = kel_buf_get_length(held.second_buffer, &length)) {
        return error_text(error);
    }
    return length == expected ? nullptr : "size mismatch after dup'd";
}

// Clears the area and reads the duplicate's `length` bytes into it.
uint32_t read_duplicate(const held_objects &held, uint8_t *area, uint32_t length)
{
    memset(area, 0, length);
    return kel_buf_get_data(held.second_buffer, 0, area, &length);
}

const char *check_duplicate_pattern(const held_objects &held, uint8_t *area, uint32_t length)
{
    if (uint32_t error = read_duplicate(held, area, length)) return error_text(error);
    if (verify_data(area, static_cast<int32_t>(length), PATTERN_A)) {
        return "dup'd buf data verification failed";
    }
    return nullptr;
}

const char *check_duplicate_bytes(const held_objects &held, uint8_t *area, uint32_t length,
                                  const uint8_t *expected)
{
    if (uint32_t error = read_duplicate(held, area, length)) return error_text(error);
    return memcmp(area, expected, length) ? "dup'd buf data verification failed" : nullptr;
}

// A whole buffer's duplicate, asked for by `length`.
const char *duplicate_whole(held_objects &held, uint32_t length)
{
    uint8_t area[STANDARD_SIZE];

    if (uint32_t error = get_filled_buffer(held.client, STANDARD_SIZE, PATTERN_A, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = duplicate(held, 0, length, ERROR_NOT_STORED)) return error_text(error);
    if (const char *message = check_duplicate_length(held, STANDARD_SIZE)) return message;
    return check_duplicate_pattern(held, area, STANDARD_SIZE);
}

// Fills the `size` bytes of held.buffer's chain with the pattern by way of the area, and leaves
// nothing there that a library could copy later.
uint32_t fill_chain(const held_objects &held, uint8_t *area, uint32_t size)
{
    set_data(area, static_cast<int32_t>(size), PATTERN_A);
    const uint32_t error = kel_buf_set_data(held.buffer, 0, area, size);
    memset(area, 0, size);
    return error;
}

uint32_t get_chain(held_objects &held, uint32_t size, uint8_t contiguous)
{
    uint32_t error = ERROR_NOT_STORED;

    held.buffer = kel_get_buffer(held.client, 0, size, contiguous, &error);
    return error;
}

// The length of the chain: the sum over its buffers up to the first whose length is refused.
uint32_t count_buffers(kel_buffer buffer)
{
    uint32_t sum = 0;

    for (uint32_t i = 0; i < MAX_WALK; i++) {
        uint32_t length = 0;
        if (kel_buf_get_length(buffer, &length)) break;
        sum += length;
        buffer = kel_buf_get_next(buffer);
    }
    return sum;
}

} // namespace

CASE(kel_buf, trim_head_null_buf, with_client, judge_null_buffer(kel_buf_trim_head, HEAD_TEXTS))
CASE(kel_buf, trim_head_toobig, with_client, judge_too_big(held, kel_buf_trim_head, HEAD_TEXTS))
CASE(kel_buf, trim_head_all, with_client, trim_all(held, kel_buf_trim_head, HEAD_TEXTS))
CASE(kel_buf, trim_head_zero, with_client, trim_zero(held, kel_buf_trim_head, HEAD_TEXTS))
CASE(kel_buf, trim_head, with_client, trim_part_of_head(held, kel_buf_trim_head, HEAD_TEXTS))
CASE(kel_buf, trim_head_first, with_client, trim_first(held, kel_buf_trim_head, HEAD_TEXTS))
CASE(kel_buf, trim_head_second, with_client, trim_first_two(held, kel_buf_trim_head, HEAD_TEXTS))
CASE(kel_buf, trim_tail_null_buf, with_client, judge_null_buffer(kel_buf_trim_tail, TAIL_TEXTS))
CASE(kel_buf, trim_tail_toobig, with_client, judge_too_big(held, kel_buf_trim_tail, TAIL_TEXTS))
CASE(kel_buf, trim_tail_all, with_client, trim_all(held, kel_buf_trim_tail, TAIL_TEXTS))
CASE(kel_buf, trim_tail_zero, with_client, trim_zero(held, kel_buf_trim_tail, TAIL_TEXTS))
CASE(kel_buf, trim_tail, with_client, trim_part_of_tail(held, kel_buf_trim_tail, TAIL_TEXTS))
CASE(kel_buf, trim_tail_last, with_client, trim_last(held, kel_buf_trim_tail, TAIL_TEXTS))
CASE(kel_buf, trim_tail_second, with_client, trim_last_two(held, kel_buf_trim_tail, TAIL_TEXTS))
CASE(kel_buf, adj_head_null_buf, with_client, judge_null_buffer(adjust_head, ADJ_TEXTS))
CASE(kel_buf, adj_head_toobig, with_client, judge_too_big(held, adjust_head, ADJ_TEXTS))
CASE(kel_buf, adj_head_all, with_client, trim_all(held, adjust_head, ADJ_TEXTS))
CASE(kel_buf, adj_zero, with_client, trim_zero(held, adjust_head, ADJ_TEXTS))
CASE(kel_buf, adj_head, with_client, trim_part_of_head(held, adjust_head, ADJ_TEXTS))
CASE(kel_buf, adj_head_first, with_client, trim_first(held, adjust_head, ADJ_TEXTS))

CASE(kel_buf, adj_head_second, with_client)
{
    return trim_first_two(held, kel_buf_trim_head, ADJ_TEXTS); // sic
}

CASE(kel_buf, adj_tail_null_buf, with_client, judge_null_buffer(adjust_tail, ADJ_TEXTS))
CASE(kel_buf, adj_tail_toobig, with_client, judge_too_big(held, adjust_tail, ADJ_TEXTS))
CASE(kel_buf, adj_tail_all, with_client, trim_all(held, adjust_tail, ADJ_TEXTS))
CASE(kel_buf, adj_tail, with_client, trim_part_of_tail(held, adjust_tail, ADJ_TEXTS))
CASE(kel_buf, adj_tail_last, with_client, trim_last(held, adjust_tail, ADJ_TEXTS))
CASE(kel_buf, adj_tail_second, with_client, trim_last_two(held, adjust_tail, ADJ_TEXTS))
CASE(kel_buf, addhead_null_bufptr, with_client, judge_add_head(nullptr))
CASE(kel_buf, addhead_null_buf, with_client, judge_add_head(&held.buffer))

// The handle is not in the record, because the case does not own it.
CASE(kel_buf, addhead_invalid_buf, with_client)
{
    kel_buffer buffer = BAD_BUFFER;

    return judge_add_head(&buffer);
}

CASE(kel_buf, addtail_null_buf, with_client, judge_add_tail(0))
CASE(kel_buf, addtail_invalid_buf, with_client, judge_add_tail(BAD_BUFFER))

CASE(kel_buf, dup_buf_invalid_buf, with_nothing)
{
    if (duplicate(held, 0, STANDARD_SIZE, ERROR_NOT_STORED) != EINVAL) {
        return "dup invalid buf succeed";
    }
    return nullptr;
}

CASE(kel_buf, dup_buf_invalid_len, with_client,
     judge_bad_stretch(held, 0, 1501, "dup invalid length buf succeed"))
CASE(kel_buf, dup_buf_invalid_offset, with_client,
     judge_bad_stretch(held, 1501, 1500, "dup invalid offset buf succeed"))
CASE(kel_buf, dup_buf_no_truncate, with_client,
     judge_bad_stretch(held, 750, 1500, "dup buf truncate succeed"))
CASE(kel_buf, dup_buf, with_client, duplicate_whole(held, STANDARD_SIZE))
CASE(kel_buf, dup_buf_copyall, with_client, duplicate_whole(held, KEL_COPY_ALL))

CASE(kel_buf, dup_buf_partial, with_client)
{
    constexpr uint32_t PART = STANDARD_SIZE / 2;
    uint8_t pattern[STANDARD_SIZE];
    uint8_t area[PART];

    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = fill_chain(held, pattern, STANDARD_SIZE)) return error_text(error);
    if (uint32_t error = duplicate(held, PART, PART, ERROR_NOT_STORED)) return error_text(error);
    if (const char *message = check_duplicate_length(held, PART)) return message;
    set_data(pattern, STANDARD_SIZE, PATTERN_A);
    return check_duplicate_bytes(held, area, PART, pattern + PART);
}

CASE(kel_buf, dup_buf_jumbo, with_client)
{
    uint8_t area[JUMBO_SIZE];

    if (uint32_t error = get_chain(held, JUMBO_SIZE, 1)) return error_text(error);
    if (uint32_t error = fill_chain(held, area, JUMBO_SIZE)) return error_text(error);
    if (uint32_t error = duplicate(held, 0, KEL_COPY_ALL, ERROR_NOT_STORED)) {
        return error_text(error);
    }
    if (const char *message = check_duplicate_length(held, JUMBO_SIZE)) return message;
    return check_duplicate_pattern(held, area, JUMBO_SIZE);
}

CASE(kel_buf, dup_buf_noncont, with_client)
{
    if (uint32_t error = get_chain(held, CHAIN_SIZE, 0)) return error_text(error);
    held.area = static_cast<uint8_t *>(malloc(CHAIN_SIZE));
    if (!held.area) return "malloc failed";
    if (uint32_t error = fill_chain(held, held.area, CHAIN_SIZE)) return error_text(error);
    if (uint32_t error = duplicate(held, 0, KEL_COPY_ALL, ERROR_NOT_STORED)) {
        return error_text(error);
    }
    if (count_buffers(held.second_buffer) != CHAIN_SIZE) return "size mismatch after dup'd";
    return check_duplicate_pattern(held, held.area, CHAIN_SIZE);
}

CASE(kel_buf, dup_buf_noncont_partial, with_client)
{
    constexpr uint32_t HALF = CHAIN_SIZE / 2;

    if (uint32_t error = get_chain(held, CHAIN_SIZE, 0)) return error_text(error);
    held.area = static_cast<uint8_t *>(malloc(CHAIN_SIZE));
    if (!held.area) return "malloc failed";
    held.second_area = static_cast<uint8_t *>(malloc(CHAIN_SIZE));
    if (!held.second_area) return "malloc failed";
    if (uint32_t error = fill_chain(held, held.second_area, CHAIN_SIZE)) return error_text(error);
    if (uint32_t error = duplicate(held, HALF, KEL_COPY_ALL, ERROR_NOT_STORED)) {
        return error_text(error);
    }
    if (count_buffers(held.second_buffer) != HALF) return "size mismatch after dup'd";
    set_data(held.second_area, CHAIN_SIZE, PATTERN_A);
    return check_duplicate_bytes(held, held.area, HALF, held.second_area + HALF);
}

CASE(kel_buf, dup_buf_diff_chain, with_client)
{
    uint8_t area[2 * STANDARD_SIZE];

    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.buffer)) {
        return error_text(error);
    }
    if (uint32_t error = get_buffer(held.client, STANDARD_SIZE, &held.second_buffer)) {
        return error_text(error);
    }
    if (uint32_t error = kel_buf_append(held.buffer, held.second_buffer)) {
        return error_text(error);
    }
    held.second_buffer = 0;
    if (uint32_t error = fill_chain(held, area, sizeof(area))) return error_text(error);
    if (uint32_t error = duplicate(held, 0, KEL_COPY_ALL, ERROR_NOT_STORED)) {
        return error_text(error);
    }
    if (const char *message = check_duplicate_length(held, sizeof(area))) return message;
    if (kel_buf_get_buf_count(held.second_buffer) > 2) return "dup buf count should be smaller";
    return check_duplicate_pattern(held, area, sizeof(area));
}
