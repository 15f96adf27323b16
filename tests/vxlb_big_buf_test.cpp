// SPDX-License-Identifier: Apache-2.0
// Copies and growth are compared with a model in fuzz_norm_ids; here is what that leaves out.
#include "trace_log.h"

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_big_buf.h>

#include <climits>
#include <map>

namespace {

struct Buffer : bigbuf_t {
    explicit Buffer(int bytes) { EXPECT_EQ(0, vxlb_bigbuf_init_ex(this, bytes)); }
    ~Buffer() { vxlb_bigbuf_free(this); }
};

std::string described(const bigbuf_t &buf) {
    const bool is_zero = std::all_of(buf.buffer + buf.offset, buf.buffer + buf.bufsize,
                                     [](char c) { return c == 0; });
    return text("%ld of %ld%s", buf.offset, buf.bufsize, is_zero ? "" : ", dirty");
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
    EXPECT_EQ("0 of 0", described(buf));
    for (const auto &[make, size] :
         {std::pair{&vxlb_bigbuf_init, 1048576}, {vxlb_bigbuf_realloc, 10240}}) {
        EXPECT_EQ(0, make(&buf));
        EXPECT_EQ(text("0 of %d", size), described(buf));
        vxlb_bigbuf_free(&buf);
    }
}

// Data that comes with its length need not be terminated, by a trace either.
TEST(VxlbBigBuf, TracesAndCommentsOnItsSteps) {
    TraceLog log(VXLB_MOD_MISC, VXLB_LEVEL_3);
    const std::string path = log.dir / "f";
    std::ofstream(path) << std::string(20000, 'z');
    const char data[3] = {'a', 'b', 'c'};
    Buffer buf(8);
    vxlb_bigbuf_copy_into_bigbuf(&buf, data, 3);
    EXPECT_EQ("4 - Method called, string = abc, len = 3, flag = 0LBBB: Read and fill into "
              "bigbuf = 3\nDONE!!!, offset = 8\n",
              copy_ex(&buf, data, 3, BIGBUF_TYPE_BUFFER));
    EXPECT_EQ(
        "8 - Method called, string = PATH, len = 1, flag = 1LBBB: Read file PATH\nLBBB: Read "
        "file-size = 20000\nLBBB: Read and fill into bigbuf = 20000\nDONE!!!, offset = 20009\n",
        replaced(copy_ex(&buf, path.c_str(), 1, BIGBUF_TYPE_FILE), path, "PATH"));
    EXPECT_EQ(std::string(20000, 'z'), vxlb_bigbuf_get_value(&buf, 8));
    EXPECT_EQ(R"(Method called, allocate big buffer of len = 1MB
Method called. bufsize = 8, bigbuf buffer = @, needed space = 3, offset = 0
Copy data 'abc' of len '3' into big buf
Method called. bufsize = 8, bigbuf buffer = @, needed space = 3, offset = 4
Copy data 'abc' of len '3' into big buf
Method called. bufsize = 10248, bigbuf buffer = @, needed space = 1, offset = 8
file size = 20000
Copy data 'PATH' of len '20000' into big buf
)",
              replaced(log.take(), path, "PATH"));
}

TEST(VxlbBigBuf, SaysWhatIsWrongWithASource) {
    TempDir dir;
    Buffer buf(8);
    const std::string empty = dir / "empty", huge = dir / "huge";
    const std::string short_file = "/sys/kernel/mm/transparent_hugepage/enabled"; // for its size
    std::ofstream{empty};
    std::ofstream{huge};
    std::filesystem::resize_file(huge, INT_MAX);
    EXPECT_EQ("-1 Flag type can only be BIGBUF_TYPE_FILE or BIGBUF_TYPE_BUFFER "
              "Method called, string = x, len = 0, flag = 2",
              copy_ex(&buf, "x", 0, 2));
    EXPECT_EQ("-1 Invalid length -2 Method called, string = x, len = -2, flag = 0",
              copy_ex(&buf, "x", -2, 0));
    for (const auto &[source, message] : std::map<std::string, std::string>{
             {"/no", "File '/no' does not exists. err(2)=No such file or directory."},
             {empty, "File '" + empty + "' is blank err(0)=Success."},
             {huge, "Error in reading file[" + huge + "]. SysErr[File too large]"},
             {dir.path, "Error in reading file[" + dir.path + "]. SysErr[Is a directory]"},
             {short_file, "Error in reading file[" + short_file + "]. SysErr[No data available]"},
         }) {
        if (source != short_file || std::filesystem::exists(source)) {
            const std::string result = copy_ex(&buf, source.c_str(), 0, BIGBUF_TYPE_FILE);
            EXPECT_TRUE(result.starts_with("-1 " + message + " Method called")) << result;
            EXPECT_EQ(text("0 of %ld", buf.bufsize), described(buf));
        }
    }
}
