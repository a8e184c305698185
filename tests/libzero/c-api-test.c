/* libzero's headers read by a C compiler, and its functions called from C: each check that
 * fails is printed, and the exit status is their count. */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "libzero/bounded-path.h"
#include "libzero/codepoint-width.h"
#include "libzero/create-crash-dump.h"
#include "libzero/unicode-file.h"

static int failures;

static void check(int ok, const char* what) {
    if (!ok) {
        printf("FAIL: %s\n", what);
        ++failures;
    }
}

int main(void) {
    char buf[16];
    struct bounded_path p;
    bounded_path_init(&p, buf, sizeof buf);
    check(bounded_path_set(&p, "/var", 4) == 0, "bounded_path_set");
    check(bounded_path_push(&p, "log", 3) == 0, "bounded_path_push");
    check(strcmp(bounded_path_str(&p), "/var/log") == 0 && bounded_path_length(&p) == 8, "the path");
    check(bounded_path_push(&p, "a-name-too-long", 15) == ENAMETOOLONG, "a path too long for the buffer");
    check(strcmp(bounded_path_str(&p), "/var/log") == 0, "a failed change leaves the path as it was");

    check(codepoint_width('A') == 1 && codepoint_width(0x4E00) == 2 && codepoint_width(0x0301) == 0,
          "codepoint_width");
    check(codepoint_width_by_search(0x4E00) == 2, "codepoint_width_by_search");

    {
        const unsigned char utf16[] = {0x41, 0x00, 0xE9, 0x00, 0xAC, 0x20};  /* "Aé€" */
        char out[32];
        size_t consumed = 0;
        uint64_t replacements = 0, first_bad = UINT64_MAX;
        const size_t n = utrans_convert(UTRANS_UTF16LE, utf16, sizeof utf16, 1, &consumed, out, &replacements,
                                        &first_bad);
        check(utrans_output_bound(sizeof utf16) <= sizeof out, "utrans_output_bound");
        check(n == 6 && memcmp(out, "A\xC3\xA9\xE2\x82\xAC", 6) == 0 && consumed == sizeof utf16,
              "utrans_convert");
        check(replacements == 0 && first_bad == UINT64_MAX, "no replacements");
    }
    check(strcmp(utrans_encoding_name(UTRANS_UTF16BE), "UTF-16BE") == 0, "utrans_encoding_name");
    {
        int error = 0;
        check(utrans_open_read("/nonexistent/file", UTRANS_DETECT, &error) == NULL && error == ENOENT,
              "utrans_open_read of a missing file");
    }
    {
        char stamp[17], digits[21];
        crash_dump_utc_compact(951782400, stamp); /* 2000-02-29 */
        check(strcmp(stamp, "20000229T000000Z") == 0, "crash_dump_utc_compact");
        check(crash_dump_format_udec(4096, digits) == 4 && strcmp(digits, "4096") == 0, "crash_dump_format_udec");
    }
    if (failures == 0) printf("libzero from C: all checks passed\n");
    return failures;
}
