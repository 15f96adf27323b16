// SPDX-License-Identifier: Apache-2.0
// What fuzz_json_moves does not compare with the model step by step.
#include "json_document.h"
#include "texts.h"

#include <fcntl.h>

namespace {

// Digits: the six moves, and 6 for the value. What comes of them, an error as "!" and its number.
std::string steps(const Parser &json, const std::string &digits) {
    std::string out;
    for (const char digit : digits) {
        int length = 0;
        const char *value = "";
        if (digit == '6') {
            value = vxlb_json_element_value(json.get(), &length, 0, 1);
        } else if (__parse_json(json.get(), static_cast<unsigned char>(digit - '0')) == -1) {
            value = nullptr;
        }
        out += value == nullptr ? text("!%d", json->error) : std::string(value, value + length);
    }
    return out;
}

TEST(VxlbJsonParser, HandleStartsAsDocumentedAndChecksArguments) {
    const Parser json = parser_of("{}", 8192);
    EXPECT_EQ(JsonModel("{}", 128, 8192).difference(json.get()), "");
    EXPECT_EQ(JsonModel("{\"a\":1}x", 7, 0).difference(parser_of("{\"a\":1}x", 0, 7).get()), "");
    EXPECT_EQ(std::string(json->buffer, 8193), std::string(8193, '\0'));
    EXPECT_EQ(fcntl(fileno(json->fp), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(__check_parse_operation(json.get(), 7), 0);
    EXPECT_EQ(steps(json, "70"), "!3");
    EXPECT_EQ(vxlb_json_goto_element(json.get(), nullptr) + json->error, -1 + 9);
    EXPECT_STREQ(vxlb_json_error_string[8], "Element Not Found");
}

TEST(VxlbJsonParser, SaysWhyItCanNotBegin) {
    vxlb_json_error error;
    const auto refusal = [&](const std::string &path, int16_t levels = 0, int window = 0) {
        EXPECT_EQ(nullptr, vxlb_json_init(path.c_str(), levels, window, &error));
        return replaced(error.str, "Failed to open input file '" + path + "', error: ", "");
    };
    EXPECT_EQ(refusal("/") + refusal("/dev/zero") + refusal("/no"),
              "Is a directoryInvalid argumentNo such file or directory");
    EXPECT_EQ(refusal(std::string(3000, 'x')).size(), 1023U);
    EXPECT_EQ(refusal("/", -1) + refusal("/", 0, -1), "Invalid ArgumentsInvalid Arguments");
    EXPECT_EQ(vxlb_json_init(nullptr, 0, 0, nullptr), nullptr);
    EXPECT_EQ(vxlb_json_init_buffer(nullptr, 0, 0, nullptr), nullptr);
    char braces[] = R"({"a":1})";
    vxlb_json_file_fp = fmemopen(braces, 7, "r"); // a preset stream without a descriptor to ask
    const std::string said = text("Failed to stat file for fp - %p, error: Bad file descriptor",
                                  static_cast<void *>(vxlb_json_file_fp));
    EXPECT_EQ(refusal("x"), said);
    EXPECT_EQ(vxlb_json_file_fp, nullptr);
    vxlb_json_file_fp = fopen(MemoryFile(braces).path.c_str(), "r");
    const Parser json(vxlb_json_init("/no", 0, 0, &error), vxlb_json_free);
    EXPECT_EQ(steps(json, "046") + error.str, "1success");
    EXPECT_TRUE(vxlb_json_file_fp == nullptr && json->f_size == 7 && json->buffer_length == 8192);
}

// Of a name 511 bytes are kept, brackets are counted in 16 bits, values may be of any length; a file's
// top is taken for an object, and an array is one only behind blanks.
TEST(VxlbJsonParser, LongPiecesAreReadAsTheModelReadsThem) {
    for (const size_t n :
         {0U, 511U, 512U, 8192U, 32767U, 32768U, 65535U, 65536U, 65537U, 200000U}) {
        for (const std::string &doc :
             {"{\"" + std::string(n, 'n') + "\":1,\"b\":\"x\"}",
              std::string(n % 3, ' ') + "\n[\"x\\\\\",1]",
              "{\"a\":\"" + std::string(n, 'v') + "\",\"b\":" + std::string(n + 1, '1') + "}",
              "{\"a\":[" + std::string(n, '{') + ",\"b\":1}}",
              "{\"a\":[" + std::string(n, '[') + "],1" + std::string(n, ']') + ",2]}"}) {
            for (const int window : {0, 7, 8192}) {
                const Parser json = parser_of(doc, window);
                JsonModel model(doc, 128, window);
                for (const char op : std::string("046464256553")) {
                    const auto value = op == '6' ? model.value(true, true) : std::string();
                    const bool fails = op == '6' ? !value : model.move(op - '0') == -1;
                    ASSERT_EQ(steps(json, {op}), fails ? text("!%d", model.error) : *value);
                    ASSERT_EQ(model.difference(json.get()), "") << n << " " << window << " " << op;
                }
            }
        }
    }
}

TEST(VxlbJsonParser, FilesMayFailAndChange) {
    const MemoryFile file(R"({"a":"long value","b":1})");
    const auto at_first_member = [&](int window) {
        const Parser json(vxlb_json_init(file.path.c_str(), 0, window, nullptr), vxlb_json_free);
        EXPECT_EQ(steps(json, "04"), "");
        return json;
    };
    const Parser failing = at_first_member(4), grown = at_first_member(1),
                 cut = at_first_member(24);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(open("/", O_RDONLY | O_DIRECTORY), fileno(failing->fp)); // reads fail, seeks don't
    EXPECT_EQ(steps(failing, "46"), "!7!7");
    dup2(ends[0], fileno(failing->fp)); // can't seek
    EXPECT_EQ(vxlb_json_goto_element(failing.get(), "a") + failing->error, -1 + 7);
    grown->offset = grown->f_size + 1; // as after reading what has been appended meanwhile
    EXPECT_EQ(steps(grown, "46"), "!0!7") << "a string has two quotes at least";
    ASSERT_EQ(ftruncate(file.fd, 9), 0);
    cut->offset = cut->buf_max = 17; // the value ends with the window, so it is read again
    cut->buffer[17] = '\0';
    EXPECT_EQ("Failed to read from file, error = Success\n",
              said([&] { EXPECT_EQ(steps(cut, "6"), "!7"); }));
}

} // namespace
