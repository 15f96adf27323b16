// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_big_buf.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <random>

namespace {

struct Buffer : bigbuf_t {
    explicit Buffer(int bytes) { EXPECT_EQ(0, vxlb_bigbuf_init_ex(this, bytes)); }
    ~Buffer() { vxlb_bigbuf_free(this); }
};

bool is_zero(const bigbuf_t &buf, int64_t from) {
    return std::all_of(buf.buffer + from, buf.buffer + buf.bufsize, [](char c) { return c == 0; });
}

// The variant that reads files: the result, its message and what it says on standard error.
std::string copy_ex(bigbuf_t *buf, const char *string, int len, int flag) {
    char message[2000] = "-";
    int64_t offset = 0;
    const std::string comment = said([&] {
        offset =
            vxlb_bigbuf_copy_into_bigbuf_ex(buf, string, len, static_cast<char>(flag), message);
    });
    return text("%ld %s %s", offset, message, comment.c_str());
}

} // namespace

TEST(VxlbBigBuf, RefusesWhatIsNoBufferOrText) {
    bigbuf_t buf = {};
    for (const int64_t refused :
         {int64_t{vxlb_bigbuf_init(nullptr)}, int64_t{vxlb_bigbuf_init_ex(nullptr, 8)},
          int64_t{vxlb_bigbuf_init_ex(&buf, 0)}, int64_t{vxlb_bigbuf_realloc(nullptr)},
          int64_t{vxlb_bigbuf_chk_avail_space(nullptr, 1)},
          vxlb_bigbuf_copy_into_bigbuf(nullptr, "x", 1),
          vxlb_bigbuf_copy_into_bigbuf(&buf, nullptr, 1),
          vxlb_bigbuf_copy_into_bigbuf(&buf, "x", -1),
          vxlb_bigbuf_copy_into_bigbuf_ex(&buf, "x", 0, 0, nullptr)}) {
        EXPECT_EQ(-1, refused);
    }
    const std::string called = "-1 - Method called, string = ";
    EXPECT_EQ(called + "(null), len = 3, flag = 0", copy_ex(&buf, nullptr, 3, 0));
    EXPECT_EQ(called + "x, len = 0, flag = 1", copy_ex(nullptr, "x", 0, 1));
    EXPECT_EQ(nullptr, vxlb_bigbuf_get_value(nullptr, 0));
    vxlb_bigbuf_free(nullptr);
    EXPECT_EQ(nullptr, buf.buffer);
}

TEST(VxlbBigBuf, OneByteAlwaysStaysUnused) {
    Buffer buf(8);
    EXPECT_EQ(1, vxlb_bigbuf_chk_avail_space(&buf, 7));
    EXPECT_EQ(0, vxlb_bigbuf_chk_avail_space(&buf, 8));
    EXPECT_EQ(0, vxlb_bigbuf_copy_into_bigbuf(&buf, "123456", 0));
    EXPECT_EQ(8, buf.bufsize);
    buf.offset = 0;
    EXPECT_EQ(0, vxlb_bigbuf_copy_into_bigbuf(&buf, "1234567", 7));
    EXPECT_EQ("8 10248 1", text("%ld %ld %d", buf.offset, buf.bufsize, is_zero(buf, 7)));
    bigbuf_t large;
    EXPECT_EQ(0, vxlb_bigbuf_init(&large));
    EXPECT_EQ("0 1048576 1", text("%ld %ld %d", large.offset, large.bufsize, is_zero(large, 0)));
    large.offset = large.bufsize - 1;
    vxlb_bigbuf_copy_into_bigbuf(&large, std::string(25000, 'x').c_str(), 25000);
    EXPECT_EQ(1048576 + 30720, large.bufsize);
    vxlb_bigbuf_free(&large);
    vxlb_bigbuf_free(&large);
    EXPECT_EQ(0, vxlb_bigbuf_realloc(&large)) << "allocates what there is not";
    EXPECT_EQ("0 10240 1", text("%ld %ld %d", large.offset, large.bufsize, is_zero(large, 0)));
    vxlb_bigbuf_free(&large);
}

TEST(VxlbBigBuf, OffsetsOutliveGrowth) {
    std::mt19937 random(3);
    Buffer buf(1);
    std::vector<std::pair<int64_t, std::string>> copies;
    for (int i = 0; i < 300; i++) {
        const int len = static_cast<int>(i == 0 ? 0 : random() % 300);
        const std::string name(static_cast<size_t>(len), static_cast<char>('a' + i % 26));
        const int64_t offset = buf.offset;
        copies.emplace_back(offset, name);
        ASSERT_EQ(offset, vxlb_bigbuf_copy_into_bigbuf(&buf, name.c_str(), i % 2 == 0 ? 0 : len));
        ASSERT_EQ(offset + len + 1, buf.offset);
    }
    for (const auto &[at, name] : copies) {
        EXPECT_EQ(name, vxlb_bigbuf_get_value(&buf, at));
    }
    EXPECT_TRUE(is_zero(buf, buf.offset));
}

// Data that comes with its length need not be terminated, by a trace either.
TEST(VxlbBigBuf, TracesAndCommentsOnItsSteps) {
    TraceLog log(VXLB_MOD_MISC, VXLB_LEVEL_3);
    const std::string path = log.dir / "f";
    std::ofstream(path) << std::string(20000, 'z');
    const char data[3] = {'a', 'b', 'c'};
    bigbuf_t plain;
    vxlb_bigbuf_init(&plain);
    vxlb_bigbuf_free(&plain);
    Buffer buf(8);
    vxlb_bigbuf_copy_into_bigbuf(&buf, data, 3);
    EXPECT_EQ("4 - Method called, string = abc, len = 3, flag = 0LBBB: Read and fill into "
              "bigbuf = 3\nDONE!!!, offset = 8\n",
              copy_ex(&buf, data, 3, BIGBUF_TYPE_BUFFER));
    EXPECT_EQ(
        "8 - Method called, string = " + path + ", len = 1, flag = 1LBBB: Read file " + path +
            "\nLBBB: Read file-size = 20000\nLBBB: Read and fill into bigbuf = 20000\nDONE!!!, "
            "offset = 20009\n",
        copy_ex(&buf, path.c_str(), 1, BIGBUF_TYPE_FILE));
    EXPECT_EQ(std::string(20000, 'z'), vxlb_bigbuf_get_value(&buf, 8));
    EXPECT_EQ(8 + 2 * 10240, buf.bufsize);
    const std::string init = "Method called, allocate big buffer of len = 1MB\n";
    const std::string entry = "Method called. bufsize = ";
    EXPECT_EQ(init + init + entry +
                  "8, bigbuf buffer = @, needed space = 3, offset = 0\n"
                  "Copy data 'abc' of len '3' into big buf\n" +
                  entry +
                  "8, bigbuf buffer = @, needed space = 3, offset = 4\n"
                  "Copy data 'abc' of len '3' into big buf\n" +
                  entry +
                  "10248, bigbuf buffer = @, needed space = 1, offset = 8\n"
                  "file size = 20000\nCopy data '" +
                  path + "' of len '20000' into big buf\n",
              log.take());
    vxlb_util_set_modulemask(VXLB_MOD_MEMORY);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
    vxlb_bigbuf_realloc(&buf);
    vxlb_bigbuf_free(&buf);
    const std::string labels = log.take();
    EXPECT_EQ(0u, labels.find("buf = @, size = 30728, old_size = 20488, exit = 1\n"
                              "MY_FREE'ed (bigbuf) done."));
    EXPECT_NE(std::string::npos, labels.find("VXLB_FREE'ed (bigbuf) Freed."));
}

TEST(VxlbBigBuf, SaysWhatIsWrongWithASource) {
    TempDir dir;
    Buffer buf(8);
    const std::string empty = dir / "empty", huge = dir / "huge";
    const std::string short_file = "/sys/kernel/mm/transparent_hugepage/enabled"; // for its size
    std::ofstream{empty};
    std::ofstream{huge};
    std::filesystem::resize_file(huge, INT_MAX);
    const struct {
        std::string source;
        int len, flag;
        std::string message;
    } cases[] = {
        {"x", 0, 2, "Flag type can only be BIGBUF_TYPE_FILE or BIGBUF_TYPE_BUFFER"},
        {"x", 0, -1, "Flag type can only be BIGBUF_TYPE_FILE or BIGBUF_TYPE_BUFFER"},
        {"x", -2, 0, "Invalid length -2"},
        {"/no", 0, 1, "File '/no' does not exists. err(2)=No such file or directory."},
        {empty, 0, 1, "File '" + empty + "' is blank err(0)=Success."},
        {huge, 0, 1, "Error in reading file[" + huge + "]. SysErr[File too large]"},
        {dir.path, 0, 1, "Error in reading file[" + dir.path + "]. SysErr[Is a directory]"},
        {short_file, 0, 1, "Error in reading file[" + short_file + "]. SysErr[No data available]"},
    };
    for (const auto &[source, len, flag, message] : cases) {
        if (source == short_file && !std::filesystem::exists(source)) {
            continue;
        }
        const std::string result = copy_ex(&buf, source.c_str(), len, flag);
        EXPECT_TRUE(result.starts_with("-1 " + message + " Method called")) << result;
        EXPECT_TRUE(buf.offset == 0 && is_zero(buf, 0)) << source;
    }
}

TEST(VxlbBigBuf, ReadsExactlyWhatWasAskedFor) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(6, write(ends[1], "abcdef", 6));
    close(ends[1]);
    char got[5] = "----";
    EXPECT_EQ(0, vxlb_read_file_and_fill_buf_ex(ends[0], got, 3, 0));
    EXPECT_STREQ("abc-", got);
    EXPECT_EQ(-1, vxlb_read_file_and_fill_buf_ex(ends[0], got, 4, 0));
    EXPECT_EQ(ENODATA, errno);
    close(ends[0]);
    EXPECT_EQ(-1, vxlb_read_file_and_fill_buf_ex(-1, got, 4, 0));
    EXPECT_EQ(EBADF, errno);
}
