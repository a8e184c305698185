#!/usr/bin/env python3
"""Fails when a file outside the platform unit uses a call, header, field or flag that differs
between FreeBSD (the target) and Linux with glibc (where the library is built and tested).

Platform differences live in src/basicutil/Platform.{h,cpp} (and its test); the tests' own facts
about their oracles live in tests/support/ (test-platform.h, and the C library interposers of
fault-injection.c). Everything else must not use what is listed below. Run from anywhere:
    python3 scripts/check-platform.py [ROOT]
Exit status 0 when clean, 1 with one line per use: file:line: what, and why it differs.
"""
import re
import subprocess
import sys
from pathlib import Path

# (pattern, why). Patterns match code, after comments and string literals are blanked.
CODE_RULES = [
    (r"\batomic\s*<\s*(std::)?shared_ptr\b", "std::atomic<std::shared_ptr> does not exist in libc++"),
    (r"\batomic_(load|store|exchange|compare_exchange_\w+)\s*\(\s*&\s*\w*(shared|ptr)",
     "atomic free functions on shared_ptr are deprecated and differ between the libraries"),
    (r"\bsyncfs\s*\(", "syncfs is Linux-only"),
    (r"\bgettid\s*\(|\bSYS_gettid\b|\bpthread_getthreadid_np\b", "thread ids: gettid on Linux, pthread_getthreadid_np on FreeBSD"),
    (r"\bpthread_[sg]etname_np\b", "thread names: declared in different headers, different limits"),
    (r"\bstrerror_r\b|\b__xpg_strerror_r\b", "strerror_r: GNU and XSI signatures and results differ"),
    (r"\bcopy_file_range\b", "copy_file_range: FreeBSD 13 on only, RLIMIT_FSIZE checked on the length asked for"),
    (r"\b__assert_fail\b|\b__assert\s*\(", "the assertion routine differs (__assert_fail, __assert)"),
    (r"\basctime(_r)?\s*\(|\bctime(_r)?\s*\(", "asctime pads years below 1000 on FreeBSD, not in glibc"),
    (r"\btm_zone\s*=[^=]", "struct tm's tm_zone is char* on FreeBSD, const char* in glibc"),
    (r"\bclock\s*\(\s*\)|\bCLOCKS_PER_SEC\b", "clock() counts 1/1,000,000 s in glibc and 1/128 s on FreeBSD"),
    (r"\bsched_getcpu\b|\bprctl\b|\bepoll_\w+|\binotify_\w+|\beventfd\b|\bsignalfd\b|\btimerfd_\w+|\bsendfile\b|\bfallocate\b|\bmemfd_create\b",
     "a Linux-only call"),
    (r"\bkqueue\b|\bkevent\b|\bcap_enter\b|\bcpuset_\w+", "a FreeBSD-only call"),
    (r"\bgetauxval\b|\belf_aux_info\b|\bAT_MINSIGSTKSZ\b", "the auxiliary vector: getauxval on Linux, elf_aux_info on FreeBSD"),
    (r"\bprogram_invocation_(short_)?name\b|\bgetprogname\b", "the program's name: glibc's variables, FreeBSD's getprogname"),
    (r"\buc_mcontext\b|\bgregs\b|\bREG_R[A-Z0-9]+\b|\bmc_r\w+\b", "a signal context's registers: named differently in each system's mcontext_t"),
    (r"\bpthread_getattr_np\b|\bpthread_attr_get_np\b|\bKERN_PROC_\w+\b", "thread attributes and process facts: asked differently"),
    (r"\bsecure_getenv\b", "secure_getenv is glibc's (FreeBSD: issetugid)"),
    (r"\bst_birthtim\w*\b|\bst_flags\b|\bst_gen\b", "a FreeBSD-only struct stat field"),
    (r"\bstatfs\b|\bf_type\b|\bf_fstypename\b", "struct statfs differs; statvfs is the same on both"),
    (r"\bO_PATH\b|\bO_TMPFILE\b|\bO_NOATIME\b|\bO_DIRECT\b|\bMAP_POPULATE\b|\bMAP_HUGETLB\b|\bMAP_NORESERVE\b",
     "an open or mmap flag one of the systems lacks"),
    (r"\bEMLINK\b", "O_NOFOLLOW on a link is EMLINK on FreeBSD, ELOOP on Linux (platform::openErrno)"),
    (r"\b__GLIBC__\b|\b__linux__\b|\b__FreeBSD__\b|\b__FreeBSD_version\b|\b_GNU_SOURCE\b|\b__USE_GNU\b",
     "a system test outside the platform unit"),
]
HEADER_RULES = [
    (r"<(linux/[^>]*|sys/prctl\.h|sys/epoll\.h|sys/inotify\.h|sys/eventfd\.h|sys/signalfd\.h|sys/timerfd\.h|"
     r"sys/sendfile\.h|sys/sysinfo\.h|sys/syscall\.h|sys/auxv\.h|sys/vfs\.h|sys/statfs\.h|malloc\.h|features\.h|"
     r"endian\.h|byteswap\.h|error\.h|execinfo\.h|gnu/[^>]*|bits/[^>]*)>", "a Linux or glibc header"),
    (r"<(pthread_np\.h|sys/param\.h|sys/sysctl\.h|sys/event\.h|sys/cpuset\.h|sys/capsicum\.h|sys/endian\.h|"
     r"sys/mount\.h|sys/user\.h|libutil\.h)>", "a FreeBSD header"),
]
# Compiler flags one of the two compilers (g++ on Linux, clang++ on FreeBSD) rejects under -Werror.
BUILD_RULES = [
    (r"-W(no-)?(format-truncation|format-overflow|stringop-\w+|maybe-uninitialized|class-memaccess|"
     r"restrict|array-bounds=\d|dangling-pointer|use-after-free|alloc-size-larger-than|"
     r"implicit-fallthrough=\d|cast-function-type)\b", "a GCC-only warning flag: clang -Werror rejects it"),
    (r"-W(no-)?(shorten-64-to-32|c\+\+98-compat\S*|documentation\S*|unreachable-code-\S+|shadow-field\S*|"
     r"reserved-identifier|unsafe-buffer-usage)\b", "a clang-only warning flag: g++ -Werror rejects it"),
    (r"\bsyncfs\b|-lrt\b|-ldl\b|-lbsd\b", "a Linux-only library or call in the build"),
]

ALLOWED = ("src/basicutil/platform/Platform.h", "src/basicutil/platform/Platform.cpp", "tests/basicutil/platform/PlatformTest.cpp",
           "src/basicutil/platform/PlatformCrash.h", "src/basicutil/platform/PlatformCrash.cpp",
           "tests/basicutil/platform/PlatformCrashTest.cpp")
ALLOWED_DIRS = ("tests/support/",)
SOURCE_DIRS = ("src/", "tests/", "bench/", "fuzz/")
SOURCE_SUFFIXES = (".cpp", ".h", ".c", ".cc", ".hpp")


def blank(text):
    """Comments and string or character literals replaced by spaces (line breaks kept), so that
    rules see code only. Header names in #include lines are kept."""
    out = []
    i, n = 0, len(text)
    while i < n:
        c = text[i]
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
            out.append(" " * (j - i))
            i = j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            out.append(re.sub(r"[^\n]", " ", text[i:j]))
            i = j
        elif c in "\"'":
            line_start = text.rfind("\n", 0, i) + 1
            if c == '"' and text[line_start:i].lstrip().startswith("#include"):
                out.append(c)
                i += 1
                continue
            if c == '"' and i > 0 and text[i - 1] == "R":  # raw string R"delim(...)delim"
                open_paren = text.find("(", i)
                delim = text[i + 1:open_paren]
                j = text.find(")" + delim + '"', open_paren)
                j = n if j < 0 else j + len(delim) + 2
            else:
                j = i + 1
                while j < n and text[j] != c and text[j] != "\n":
                    j += 2 if text[j] == "\\" else 1
                j = min(j + 1, n)
            out.append(c + re.sub(r"[^\n]", " ", text[i + 1:j - 1]) + (text[j - 1] if j - 1 > i else ""))
            i = j
        else:
            out.append(c)
            i += 1
    return "".join(out)


def tracked_files(root):
    listed = subprocess.run(["git", "-C", str(root), "ls-files", "-z"], capture_output=True, check=True)
    return [name for name in listed.stdout.decode().split("\0") if name]


def check(root):
    problems = []
    for name in tracked_files(root):
        path = root / name
        if not path.is_file():
            continue
        rules = []
        if name.startswith(SOURCE_DIRS) and name.endswith(SOURCE_SUFFIXES):
            if name in ALLOWED or name.startswith(ALLOWED_DIRS):
                continue
            rules = CODE_RULES + HEADER_RULES
            text = blank(path.read_text(errors="replace"))
        elif name.endswith("CMakeLists.txt") or name.endswith(".cmake") or name == "CMakePresets.json":
            rules = BUILD_RULES
            text = "\n".join(re.sub(r"#.*", "", line) for line in path.read_text(errors="replace").splitlines())
        else:
            continue
        for number, line in enumerate(text.splitlines(), 1):
            for pattern, why in rules:
                found = re.search(pattern, line)
                if found:
                    problems.append(f"{name}:{number}: {found.group(0).strip()}: {why}")
    return problems


def main():
    root = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).resolve().parent.parent
    problems = check(root)
    for p in problems:
        print(p)
    if problems:
        print(f"check-platform: {len(problems)} use(s) of platform differences outside "
              "src/basicutil/Platform.{h,cpp}", file=sys.stderr)
        return 1
    print("check-platform: no platform difference outside the platform unit")
    return 0


if __name__ == "__main__":
    sys.exit(main())
