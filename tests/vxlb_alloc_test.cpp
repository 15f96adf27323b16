// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_mem_map.h>

#include <climits>
#include <clocale>
#include <cstring>
#include <functional>
#include <thread>

// Under a sanitizer, too, memory that can't be had is null.
extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

using Lines = std::vector<std::string>;
enum { ALLOC_TRACES = VXLB_LEVEL_2 };

// Run in a fresh thread, whose counters begin at 0.
void in_thread(const std::function<void()> &body) {
    std::thread(body).join();
}

std::string marker(const char *block, size_t at) {
    return {block + at, VXLB_ALLOC_MARK_SIZE};
}

std::string statistics() {
    return text("%lu %u %lu %u %u %u %u %u", g_c_mem_allocated, g_mem_allocated, g_c_mem_freed,
                g_mem_freed, g_c_alloc_count, g_alloc_count, g_c_free_count, g_free_count);
}

// The same steps with and without traces: the wrappers take different roads.
void count_some_steps() {
    char *a = nullptr;
    VXLB_MALLOC(a, 100, "a");
    EXPECT_EQ("100 100 0 0 1 1 0 0", statistics());
    EXPECT_EQ("ZMemDbg", marker(a, 100));
    memset(a, 'a', 100);
    VXLB_REALLOC(a, 200, "a", 100, -1);
    EXPECT_EQ("100 100 0 0 1 1 0 0", statistics()) << "a reallocation counts nothing";
    EXPECT_EQ("ZMemDbg", marker(a, 200));
    EXPECT_EQ(std::string(100, 'a'), std::string(a, 100));
    VXLB_FREE(a, "a", -1);
    EXPECT_EQ("100 100 1 1 1 1 1 1", statistics());
    VXLB_MALLOC(a, 0, "a");
    EXPECT_EQ(nullptr, a);
    VXLB_FREE(a, "a", -1);
    EXPECT_EQ("100 100 1 1 1 1 1 1", statistics()) << "neither null nor size 0 counts";
    g_alloc_extra_size = 5;
    VXLB_MALLOC(a, 10, "a");
    EXPECT_EQ("ZMemDbg", marker(a, 15));
    VXLB_REALLOC(a, 20, "a", 10, -1);
    EXPECT_EQ("ZMemDbg", marker(a, 25));
    VXLB_FREE(a, "a", -1);
    EXPECT_EQ("110 110 2 2 2 2 2 2", statistics());
    VXLB_REALLOC(a = nullptr, 7, "a", 0, -1);
    EXPECT_EQ("117 117 2 2 3 3 2 2", statistics()) << "a null variable is allocated";
    free(a);
}

} // namespace

TEST(VxlbAlloc, CountsForItsThreadTracedOrNot) {
    in_thread(count_some_steps);
    TraceLog log;
    in_thread(count_some_steps);
    EXPECT_EQ(0u, g_c_shared_mem_allocated + g_shared_mem_allocated + g_c_shared_mem_alloc_count +
                      g_shared_mem_alloc_count);
    EXPECT_EQ(123u, vxlb_get_mem_chunk_size(nullptr, 123));
}

TEST(VxlbAlloc, TracesEveryStepWithItsCallSite) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_2 | VXLB_LEVEL_3);
    g_alloc_extra_size = 3;
    char *a = nullptr;
    const int line = __LINE__ + 1;
    VXLB_MALLOC(a, 100, "lab");
    EXPECT_NE(std::string::npos,
              log.content().find(text("vxlb_alloc_test.cpp|%d|TestBody|size = 100", line)));
    EXPECT_EQ((Lines{"size = 100",
                     text("VXLB_MALLOC'ed (lab) done. ptr = %p, size = 103, allocated size = 100",
                          shown(a)),
                     text("Method called, address = %p, size = 103, message = lab", shown(a)),
                     "Memory map is not initialized"}),
              log.take());
    char *old = a;
    VXLB_REALLOC(a, 5000, "lab", 77, 4);
    EXPECT_EQ(
        (Lines{
            text("buf = %p, size = 5000, old_size = 77, exit = 1", shown(old)),
            text(
                "MY_FREE'ed (lab) done. ptr = $%p$, size = 77, old_alloced_size = 5000 for index 4",
                shown(old)),
            text("Method called, address = %p", shown(old)), "Memory map is not initialized",
            text(
                "VXLB_MALLOC'ed (lab) done. ptr = $%p$, size = 5003, new_alloced_size = 5000 for index 4",
                shown(a)),
            text("Method called, address = %p, size = 5003, message = lab", shown(a)),
            "Memory map is not initialized"}),
        log.take());
    old = a;
    VXLB_FREE(a, "lab", 6);
    EXPECT_EQ(
        (Lines{text("Method called, address = %p", shown(old)), "Memory map is not initialized",
               text("VXLB_FREE'ed (lab) Freed. ptr = $%p$ for index 6, allocated_size = 1",
                    shown(old))}),
        log.take());
    g_alloc_extra_size = 0;
    VXLB_MALLOC(a, 0, "zero");
    EXPECT_EQ((Lines{"size = 0", "VXLB: Trying to malloc a 0 size\n"}), log.take());
    VXLB_REALLOC(a, 0, "zero", 1, -1);
    EXPECT_EQ((Lines{"buf = (nil), size = 0, old_size = 1, exit = 1", "size = 0",
                     "VXLB: Trying to malloc a 0 size\n"}),
              log.take());
}

TEST(VxlbAlloc, TheStatisticsLineShowsMegabytes) {
    TraceLog log(VXLB_MOD_MEMORY, VXLB_LEVEL_1);
    in_thread([&] {
        char *a = nullptr;
        g_c_mem_allocated = (uint64_t{3000} << 20) - 1048576;
        g_mem_allocated = 0;
        g_c_mem_freed = 1048576 * 3 / 2 - 1;
        g_mem_freed = 1048576 * 2 - 1;
        VXLB_MALLOC(a, 1048576, "a");
        VXLB_REALLOC(a, 10, "a", 1, -1);
        VXLB_FREE(a, "a", -1);
    });
    const auto line = [](const char *freed, const char *periodic_freed, const char *net,
                         const char *periodic_net) {
        return text(
            "MEM_STATS: Cumulative allocated memory = 3000.000 MB, periodic allocated memory = 1.000 MB, "
            "Cumulative freed memory = %s MB, periodic freed memory = %s MB, Cumulative Net allocated memory "
            "=  %s MB, Periodic Net allocated memory =  %s MB",
            freed, periodic_freed, net, periodic_net);
    };
    const std::string before = line("1.500", "2.000", "2998.500", "4095.000");
    EXPECT_EQ((Lines{before, before, before}), log.take());
}

TEST(VxlbAlloc, TakesAnyPointerAndAnySizeAndEvaluatesEachOnce) {
    struct Bits {
        unsigned three : 3;
    } bits = {5};
    const char *text_block = nullptr;
    volatile int *numbers = nullptr;
    void *raw = nullptr;
    double *array[3] = {};
    int pointers = 0;
    int sizes = 0;
    int others = 0;
    int labels = 0;
    VXLB_MALLOC(text_block, static_cast<unsigned char>(200), "t");
    VXLB_MALLOC(numbers, bits.three, "n");
    VXLB_MALLOC(raw, static_cast<short>(3), "r");
    VXLB_MALLOC(array[pointers++], static_cast<size_t>(8 + sizes++), (labels++, "x"));
    VXLB_REALLOC(array[pointers++ - 1], 16LL + sizes++, (labels++, "x"), others++, -1);
    EXPECT_EQ(2, pointers);
    EXPECT_EQ(2, sizes);
    EXPECT_EQ(1, others);
    EXPECT_EQ(2, labels);
    VXLB_FREE(array[--pointers - 1], (labels++, "x"), sizes++);
    EXPECT_EQ("1 3 3", text("%d %d %d", pointers, sizes, labels));
    VXLB_FREE(text_block, "t", -1);
    VXLB_FREE(numbers, "n", -1);
    if (raw != nullptr)
        VXLB_FREE(raw, "r", -1);
    else
        FAIL();
}

TEST(VxlbAllocDeathTest, NegativeSizesEndTheProcess) {
    char *a = nullptr;
    const std::string here = "/?.*vxlb_alloc_test.cpp\\|[0-9]+\\|TestBody\\|";
    EXPECT_EXIT(VXLB_MALLOC(a, -1, "L"), testing::ExitedWithCode(255),
                here + "L\\|VXLB: Trying to malloc a negative size \\(-1\\)\n$");
    EXPECT_EXIT(VXLB_MALLOC(a, static_cast<signed char>(-128), "L"), testing::ExitedWithCode(255),
                "size \\(-128\\)\n");
    EXPECT_EXIT(VXLB_REALLOC(a, LONG_MIN, "L", 0, -1), testing::ExitedWithCode(255),
                "Trying to malloc a negative size \\(-9223372036854775808\\)\n$");
    VXLB_MALLOC(a, 1, "L");
    for (const int size : {0, -7}) {
        EXPECT_EXIT(
            VXLB_REALLOC(a, size, "L", 1, 3), testing::ExitedWithCode(255),
            here + text("L\\|VXLB: Trying to realloc a negative or 0 size \\(%d\\) for index 3\n$",
                        size));
    }
    VXLB_FREE(a, "L", -1);
}

TEST(VxlbAllocDeathTest, ExhaustionEndsTheProcess) {
    char *a = nullptr;
    const std::string here = "vxlb_alloc_test.cpp\\|[0-9]+\\|TestBody\\| Out of Memory ";
    for (const size_t size : {SIZE_MAX, SIZE_MAX - 7, SIZE_MAX - 8, SIZE_MAX / 2 + 1}) {
        SCOPED_TRACE(size);
        EXPECT_EXIT(VXLB_MALLOC(a, size, "L"), testing::ExitedWithCode(255),
                    "VXLB: .*" + here + text("\\(size = %d\\): L \n$", static_cast<int>(size)));
    }
    EXPECT_EXIT((g_alloc_extra_size = -20, [&] { VXLB_MALLOC(a, 19, "L"); }()),
                testing::ExitedWithCode(255), "Out of Memory \\(size = 19\\): L \n$");
    VXLB_MALLOC(a, 1, "L");
    EXPECT_EXIT(VXLB_REALLOC(a, SIZE_MAX - 3, "L", 1, 2), testing::KilledBySignal(SIGABRT),
                "VXLB: ERROR 12\\|.*" + here +
                    "\\(size = -4\\): L for index 2 err msg Cannot allocate memory\n$");
    VXLB_FREE(a, "L", -1);
}
