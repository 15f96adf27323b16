// SPDX-License-Identifier: Apache-2.0
#include "trace_log.h"

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_big_buf.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>

namespace {

using Lines = std::vector<std::string>;

struct Buffer : bigbuf_t {
    explicit Buffer(int bytes) { EXPECT_EQ(0, vxlb_bigbuf_init_ex(this, bytes)); }
    ~Buffer() { vxlb_bigbuf_free(this); }
};

bool is_zero(const bigbuf_t &buf, int64_t from) {
    return std::all_of(buf.buffer + from, buf.buffer + buf.bufsize, [](char c) { return c == 0; });
}

// The variant that reads files, with what it says: the result, standard error, its message.
struct Copied {
    int64_t offset;
    std::string said;
    std::string message;
};

Copied copy_ex(bigbuf_t *buf, const char *string, int len, char flag) {
    char message[2000] = "-";
    testing::internal::CaptureStderr();
    const int64_t offset = vxlb_bigbuf_copy_into_bigbuf_ex(buf, string, len, flag, message);
    return {offset, testing::internal::GetCapturedStderr(), message};
}

} // namespace

TEST(VxlbBigBuf, InitGivesAZeroedBlock) {
    bigbuf_t buf = {nullptr, 5, 5};
    EXPECT_EQ(0, vxlb_bigbuf_init(&buf));
    EXPECT_EQ(0, buf.offset);
    EXPECT_EQ(1048576, buf.bufsize);
    EXPECT_TRUE(is_zero(buf, 0));
    vxlb_bigbuf_free(&buf);
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(nullptr, buf.buffer);
        EXPECT_EQ(0, buf.offset + buf.bufsize);
        vxlb_bigbuf_free(&buf);
    }
    EXPECT_EQ(0, vxlb_bigbuf_init_ex(&buf, 1));
    EXPECT_EQ(1, buf.bufsize);
    vxlb_bigbuf_free(&buf);
    EXPECT_EQ(-1, vxlb_bigbuf_init_ex(&buf, 0));
    EXPECT_EQ(-1, vxlb_bigbuf_init_ex(&buf, -5));
    EXPECT_EQ(nullptr, buf.buffer);
}

TEST(VxlbBigBuf, NullArgumentsAreRefused) {
    Buffer buf(8);
    char message[] = "-";
    EXPECT_EQ(-1, vxlb_bigbuf_init(nullptr));
    EXPECT_EQ(-1, vxlb_bigbuf_init_ex(nullptr, 8));
    EXPECT_EQ(-1, vxlb_bigbuf_realloc(nullptr));
    EXPECT_EQ(-1, vxlb_bigbuf_chk_avail_space(nullptr, 1));
    EXPECT_EQ(-1, vxlb_bigbuf_copy_into_bigbuf(nullptr, "x", 1));
    EXPECT_EQ(-1, vxlb_bigbuf_copy_into_bigbuf(&buf, nullptr, 1));
    EXPECT_EQ(-1, vxlb_bigbuf_copy_into_bigbuf(&buf, "x", -1));
    EXPECT_EQ(nullptr, vxlb_bigbuf_get_value(nullptr, 0));
    vxlb_bigbuf_free(nullptr);
    EXPECT_EQ("Method called, string = (null), len = 3, flag = 0",
              copy_ex(&buf, nullptr, 3, 0).said);
    EXPECT_EQ(-1, copy_ex(nullptr, "x", 0, 0).offset);
    EXPECT_EQ(-1, vxlb_bigbuf_copy_into_bigbuf_ex(&buf, "x", 0, 0, nullptr));
    EXPECT_EQ(-1, vxlb_bigbuf_copy_into_bigbuf_ex(&buf, nullptr, 0, 0, message));
    EXPECT_STREQ("-", message);
    EXPECT_EQ(0, buf.offset);
}

TEST(VxlbBigBuf, OneByteAlwaysStaysUnused) {
    Buffer buf(8);
    EXPECT_EQ(1, vxlb_bigbuf_chk_avail_space(&buf, 7));
    EXPECT_EQ(0, vxlb_bigbuf_chk_avail_space(&buf, 8));
    EXPECT_EQ(0, vxlb_bigbuf_copy_into_bigbuf(&buf, "123456", 0));
    EXPECT_EQ(8, buf.bufsize);
    buf.offset = 0;
    EXPECT_EQ(0, vxlb_bigbuf_copy_into_bigbuf(&buf, "1234567", 7));
    EXPECT_EQ(10248, buf.bufsize);
    EXPECT_EQ(8, buf.offset);
    EXPECT_TRUE(is_zero(buf, 7));
    Buffer large(1048576);
    large.offset = large.bufsize - 1;
    vxlb_bigbuf_copy_into_bigbuf(&large, std::string(25000, 'x').c_str(), 25000);
    EXPECT_EQ(1048576 + 30720, large.bufsize);
    bigbuf_t empty = {};
    EXPECT_EQ(0, vxlb_bigbuf_realloc(&empty)) << "allocates what there is not";
    EXPECT_EQ(10240, empty.bufsize);
    EXPECT_TRUE(is_zero(empty, 0));
    vxlb_bigbuf_free(&empty);
}

TEST(VxlbBigBuf, OffsetsOutliveGrowth) {
    std::mt19937 random(3);
    Buffer buf(4);
    std::vector<std::pair<int64_t, std::string>> copies;
    int64_t offset = 0;
    for (int i = 0; i < 300; i++) {
        const std::string name(i == 0 ? 0 : random() % 300, static_cast<char>('a' + i % 26));
        const int len = i % 2 == 0 ? 0 : static_cast<int>(name.size());
        copies.emplace_back(vxlb_bigbuf_copy_into_bigbuf(&buf, name.c_str(), len), name);
        ASSERT_EQ(offset, copies.back().first);
        offset += static_cast<int64_t>(name.size()) + 1;
        ASSERT_EQ(offset, buf.offset);
    }
    for (const auto &[at, name] : copies) {
        EXPECT_EQ(name, vxlb_bigbuf_get_value(&buf, at));
    }
    EXPECT_TRUE(is_zero(buf, buf.offset));
}

TEST(VxlbBigBuf, DataNeedNotBeTerminated) {
    TraceLog log;
    Buffer buf(8);
    const char data[3] = {'a', 'b', 'c'};
    EXPECT_EQ(0, vxlb_bigbuf_copy_into_bigbuf(&buf, data, 3));
    const Copied copied = copy_ex(&buf, data, 3, BIGBUF_TYPE_BUFFER);
    EXPECT_EQ(4, copied.offset);
    EXPECT_STREQ("abc", vxlb_bigbuf_get_value(&buf, 4));
}

TEST(VxlbBigBuf, TracesItsSteps) {
    TraceLog log(VXLB_MOD_MISC, VXLB_LEVEL_3);
    Buffer buf(100);
    Buffer other(8);
    bigbuf_t plain;
    vxlb_bigbuf_init(&plain);
    vxlb_bigbuf_free(&plain);
    const std::string init = "Method called, allocate big buffer of len = 1MB";
    EXPECT_EQ((Lines{init, init, init}), log.take());
    vxlb_bigbuf_copy_into_bigbuf(&buf, "abcde", 3);
    const std::string entry = text(
        "Method called. bufsize = 100, bigbuf buffer = %p, needed space = ", shown(buf.buffer));
    EXPECT_EQ((Lines{entry + "3, offset = 0", "Copy data 'abc' of len '3' into big buf"}),
              log.take());
    copy_ex(&buf, "xyz", 0, BIGBUF_TYPE_BUFFER);
    EXPECT_EQ((Lines{entry + "3, offset = 4", "Copy data 'xyz' of len '3' into big buf"}),
              log.take());
    const std::string path = log.dir / "f";
    std::ofstream(path) << "0123";
    copy_ex(&buf, path.c_str(), 0, BIGBUF_TYPE_FILE);
    EXPECT_EQ((Lines{entry + text("%zu, offset = 8", path.size()), "file size = 4",
                     "Copy data '" + path + "' of len '4' into big buf"}),
              log.take());
    vxlb_util_set_modulemask(VXLB_MOD_MEMORY);
    vxlb_util_set_debug_log_level(VXLB_LEVEL_2);
    const char *const old = buf.buffer;
    vxlb_bigbuf_realloc(&buf);
    EXPECT_EQ(text("buf = %p, size = 10340, old_size = 100, exit = 1", shown(old)),
              log.take().at(0));
    vxlb_bigbuf_free(&buf);
    EXPECT_NE(std::string::npos, log.take().at(0).find("VXLB_FREE'ed (bigbuf) Freed."));
}

TEST(VxlbBigBuf, CommentsOnEachCopyOfABufferOrFile) {
    TempDir dir;
    Buffer buf(8);
    const Copied data = copy_ex(&buf, "abcdef", 2, BIGBUF_TYPE_BUFFER);
    EXPECT_EQ(0, data.offset);
    EXPECT_EQ(
        "Method called, string = ab, len = 2, flag = 0LBBB: Read and fill into bigbuf = 2\nDONE!!!, offset = 3\n",
        data.said);
    const std::string path = dir / "file";
    const std::string content(20000, 'z');
    std::ofstream(path) << content;
    const Copied file = copy_ex(&buf, path.c_str(), 1, BIGBUF_TYPE_FILE);
    EXPECT_EQ(3, file.offset);
    EXPECT_EQ(
        "Method called, string = " + path + ", len = 1, flag = 1LBBB: Read file " + path +
            "\nLBBB: Read file-size = 20000\nLBBB: Read and fill into bigbuf = 20000\nDONE!!!, offset = 20004\n",
        file.said);
    EXPECT_EQ(content, vxlb_bigbuf_get_value(&buf, 3));
    EXPECT_EQ(8 + 2 * 10240, buf.bufsize);
    EXPECT_EQ("-", file.message);
    EXPECT_EQ(20004, copy_ex(&buf, "measured", 0, BIGBUF_TYPE_BUFFER).offset);
}

TEST(VxlbBigBuf, SaysWhatIsWrongWithASource) {
    TempDir dir;
    Buffer buf(8);
    const std::string empty = dir / "empty";
    const std::string huge = dir / "huge";
    std::ofstream{empty};
    std::ofstream{huge};
    std::filesystem::resize_file(huge, INT_MAX);
    const struct {
        std::string source;
        int len;
        char flag;
        std::string message;
    } cases[] = {
        {"x", 0, 2, "Flag type can only be BIGBUF_TYPE_FILE or BIGBUF_TYPE_BUFFER"},
        {"x", 0, -1, "Flag type can only be BIGBUF_TYPE_FILE or BIGBUF_TYPE_BUFFER"},
        {"x", -2, 0, "Invalid length -2"},
        {"/no", 0, 1, "File '/no' does not exists. err(2)=No such file or directory."},
        {empty, 0, 1, "File '" + empty + "' is blank err(0)=Success."},
        {huge, 0, 1, "Error in reading file[" + huge + "]. SysErr[File too large]"},
        {dir.path, 0, 1, "Error in reading file[" + dir.path + "]. SysErr[Is a directory]"},
        {"/sys/kernel/mm/transparent_hugepage/enabled", 0, 1, // shorter than its size says
         "Error in reading file[/sys/kernel/mm/transparent_hugepage/enabled]. SysErr[No data available]"},
    };
    for (const auto &c : cases) {
        if (c.flag == 1 && c.source[1] == 's' && !std::filesystem::exists(c.source)) {
            continue;
        }
        SCOPED_TRACE(c.source);
        const Copied copied = copy_ex(&buf, c.source.c_str(), c.len, c.flag);
        EXPECT_EQ(-1, copied.offset);
        EXPECT_EQ(c.message, copied.message);
        EXPECT_EQ(0, buf.offset);
        EXPECT_TRUE(is_zero(buf, 0));
    }
}

TEST(VxlbBigBuf, ReadsExactlyWhatWasAskedFor) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(6, write(ends[1], "abcdef", 6));
    char got[5] = "----";
    EXPECT_EQ(0, vxlb_read_file_and_fill_buf_ex(ends[0], got, 3, 0));
    EXPECT_STREQ("abc-", got);
    close(ends[1]);
    EXPECT_EQ(-1, vxlb_read_file_and_fill_buf_ex(ends[0], got, 4, 0));
    EXPECT_EQ(ENODATA, errno);
    close(ends[0]);
    EXPECT_EQ(-1, vxlb_read_file_and_fill_buf_ex(-1, got, 4, 0));
    EXPECT_EQ(EBADF, errno);
}
