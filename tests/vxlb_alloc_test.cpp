// SPDX-License-Identifier: Apache-2.0
// Counting, markers and the map's reports are compared with a model in fuzz_alloc; here are the
// traces, and the ends that a process comes to.
#include "trace_log.h"

#include <libvxcore/vxlb_mem_map.h>

#include <climits>
#include <thread>

// Under a sanitizer, too, memory that can't be had is null.
extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options() {
    return "allocator_may_return_null=1";
}

TEST(VxlbAlloc, TracesEveryStepWithItsCallSite) {
    TraceLog log(VXLB_MOD_MEMORY, -1);
    std::thread([&] {
        g_alloc_extra_size = 3;
        g_c_mem_allocated = (uint64_t{3000} << 20) - 1048576;
        g_c_mem_freed = 1048576 * 3 / 2 - 1;
        g_mem_freed = 1048576 * 2 - 1;
        char *a = nullptr;
        const int line = __LINE__ + 1;
        VXLB_MALLOC(a, 1048576, "lab");
        EXPECT_NE(std::string::npos,
                  log.content().find(text("alloc_test.cpp|%d|operator()|size = 1048576\n", line)));
        VXLB_REALLOC(a, 5000, "lab", 77, 4);
        VXLB_FREE(a, "lab", 6);
        VXLB_MALLOC(a, 0, "zero");
        VXLB_REALLOC(a, 0, "zero", 1, -1);
    }).join();
    const std::string off = "Memory map is not initialized\n";
    const std::string statistics =
        "MEM_STATS: Cumulative allocated memory = 3000.000 MB, periodic allocated memory = "
        "1.000 MB, Cumulative freed memory = 1.500 MB, periodic freed memory = 2.000 MB, "
        "Cumulative Net allocated memory =  2998.500 MB, Periodic Net allocated memory = "
        " 4095.000 MB\n";
    EXPECT_EQ(
        "size = 1048576\n"
        "VXLB_MALLOC'ed (lab) done. ptr = @, size = 1048579, allocated size = 1048576\n" +
            statistics + "Method called, address = @, size = 1048579, message = lab\n" + off +
            "buf = @, size = 5000, old_size = 77, exit = 1\n"
            "MY_FREE'ed (lab) done. ptr = $@$, size = 77, old_alloced_size = 5000 for index 4\n"
            "Method called, address = @\n" +
            off +
            "VXLB_MALLOC'ed (lab) done. ptr = $@$, size = 5003, new_alloced_size = "
            "5000 for index 4\n" +
            statistics + "Method called, address = @, size = 5003, message = lab\n" + off +
            statistics + "Method called, address = @\n" + off +
            "VXLB_FREE'ed (lab) Freed. ptr = $@$ for index 6, allocated_size = 1\n"
            "size = 0\nVXLB: Trying to malloc a 0 size\n\n"
            "buf = (nil), size = 0, old_size = 1, exit = 1\n"
            "size = 0\nVXLB: Trying to malloc a 0 size\n\n",
        log.take());
}

TEST(VxlbAllocDeathTest, SizesThatCanNotBeEndTheProcess) {
    char *null = nullptr, *block = nullptr;
    VXLB_MALLOC(block, 1, "L");
    const std::string here = "vxlb_alloc_test.cpp\\|[0-9]+\\|TestBody\\|";
    const testing::ExitedWithCode refused(255);
    EXPECT_EXIT(VXLB_MALLOC(null, static_cast<signed char>(-128), "L"), refused,
                here + "L\\|VXLB: Trying to malloc a negative size .-128.\n$");
    EXPECT_EXIT(VXLB_REALLOC(null, LONG_MIN, "L", 0, -1), refused, " negative size .-92.*808.\n$");
    for (const int size : {0, -7}) {
        EXPECT_EXIT(
            VXLB_REALLOC(block, size, "L", 1, 3), refused,
            here +
                text("L\\|VXLB: Trying to realloc a negative or 0 size .%d. for index 3\n$", size));
    }
    for (const size_t size : {SIZE_MAX, SIZE_MAX - 7, SIZE_MAX - 8, SIZE_MAX / 2 + 1}) {
        EXPECT_EXIT(VXLB_MALLOC(null, size, "L"), refused,
                    "VXLB: .*" + here +
                        text(" Out of Memory .size = %d.: L \n$", static_cast<int>(size)));
    }
    EXPECT_EXIT((g_alloc_extra_size = -20, [&] { VXLB_MALLOC(null, 19, "L"); }()), refused,
                "Out of Memory .size = 19.: L \n$");
    EXPECT_EXIT(VXLB_REALLOC(block, SIZE_MAX - 3, "L", 1, 2), testing::KilledBySignal(SIGABRT),
                "VXLB: ERROR 12\\|.*" + here +
                    " Out of Memory .size = -4.: L for index 2 err msg Cannot allocate memory\n$");
    VXLB_FREE(block, "L", -1);
}
