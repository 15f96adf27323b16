// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <libvxcore/vxlb_alloc.h>

#include "../fuzz/json_model.h"
#include "vxlb_json_skip.h"

namespace {

// A handle on a document: a buffer for window 0, else a file read in windows of that size.
struct Handle {
    MemoryFile file;
    vxlb_json_t *json;
    Handle(const std::string &doc, int window, int16_t levels = 0)
        : file(window == 0 ? "" : doc),
          json(window == 0 ? vxlb_json_init_buffer(doc.c_str(), levels,
                                                   static_cast<int>(doc.size()), nullptr)
                           : vxlb_json_init(file.path.c_str(), levels, window, nullptr)) {}
    Handle(const Handle &) = delete;
    ~Handle() { vxlb_json_free(json); }
};

// Letters of a script: { } [ ] n i for the moves, then a search letter or v for the value. Each step's answer.
std::string run(vxlb_json_t *json, const std::string &script) {
    std::string out;
    for (const char c : script) {
        const size_t op = std::string("{}[]ni").find(c);
        int result = 0, length = 0;
        if (op != std::string::npos) {
            result = __parse_json(json, static_cast<unsigned char>(op));
        } else if (c == 'v') {
            const char *value = vxlb_json_element_value_ex(json, &length, 0, 1, 1);
            out +=
                value == nullptr ? "" : "<" + std::string(value, static_cast<size_t>(length)) + ">";
            result = value == nullptr ? -1 : 0;
        } else if (isdigit(c) != 0) {
            result = vxlb_json_goto_array_item(json, c - '0');
        } else {
            result = vxlb_json_goto_element(json, std::string(1, c).c_str());
        }
        if (result == -1) {
            out += "!" + std::to_string(json->error);
        } else if (op != std::string::npos && op >= 4) {
            out += (op == 4 ? json->c_element_name : "") + std::to_string(json->c_element_type);
        }
    }
    return out;
}

TEST(VxlbJsonParser, WalksAsScripted) {
    const struct {
        const char *doc, *script, *answers;
    } cases[] = {
        {R"({"a":1,"b":{"c":2}})", "{nnn{", "a3b0!5!1"},
        {R"({"a":1,"b":{"c":2}})", "{cb{cv}a", "!8<2>"},
        {"{}", "{n}n}", "!5!1!1"},
        {R"({"a":[]})", "{n[i]i", "a1!6!3"},
        {R"({"a":[{},"s",{"b":1}]})", "{n[iii2", "a100!6!8"},
        {R"({"a":["x","y"]})", "{n[iviv0v1v", "a12<x>2<y><x><y>"},
        {R"({"a":[1 , [2],"s"]})", "{n[iiiv", "a1333<\"s\">"},
        {R"({"a":[[1],{},[2]]})", "{n[ii[ii", "a1113!6"},
        {R"({"a\"b":1})", "{n", "!2"},
        {R"({"a":x})", "{n", "!2"},
        {R"({"a":F})", "{nv", "a3<F>"},
        {R"({"a":e,"b":G})", "{nn", "a3!2"},
        {R"({"a" 1})", "{n", "!2"},
        {R"({"s":"a\tb"})", "{nvv", "s2<a\tb><a\tb>"},
        {R"({"s":"x\\","t":"y"})", "{nv", "s2<x\\\",>"}, // an escaped backslash hides the quote
        {"{\"n\":42\r\n}", "{nv", "n3<42\r>"},
        {"{\"n\":42}", "{nv", "n3<42>"},
        {R"({"a":{}})", "{nv{v", "a0!7!7"},
        {R"({"a":1})", "[]i}v", "!3!3!3!1!7"},
        {"}{", "}n}{v", "!3!3!3!7"}, // behind a closing bracket too many every move is refused
    };
    for (const auto &c : cases) {
        for (const int window : {0, 8192}) {
            SCOPED_TRACE(std::string(c.doc) + " " + std::to_string(window));
            EXPECT_EQ(run(Handle(c.doc, window).json, c.script), c.answers);
        }
    }
}

TEST(VxlbJsonParser, TopOfABufferIsAnArrayOnlyBehindBlanks) {
    EXPECT_EQ(run(Handle(" \t\n[1,2]", 0).json, "[ii"), "33");
    EXPECT_EQ(run(Handle("\r[1,2]", 0).json, "["), "!3");
    EXPECT_EQ(run(Handle("[1,2]", 64).json, "["), "!3"); // the top of a file is taken for an object
}

TEST(VxlbJsonParser, HandleStartsAsDocumented) {
    const uint32_t count = g_c_alloc_count;
    const uint64_t bytes = g_c_mem_allocated;
    const Handle file("{}", 8192);
    EXPECT_EQ(g_c_alloc_count - count, 5U);
    EXPECT_EQ(g_c_mem_allocated - bytes, sizeof(vxlb_json_t) + 8193 + 128 * 9 + 65537);
    EXPECT_EQ(JsonModel("{}", 128, 8192).difference(file.json), "");
    EXPECT_EQ(std::string(file.json->buffer, 8193), std::string(8193, '\0'));
    EXPECT_EQ(fcntl(fileno(file.json->fp), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    vxlb_json_error error;
    vxlb_json_t *json = vxlb_json_init(file.file.path.c_str(), 0, 0, &error);
    EXPECT_EQ(json->buffer_length, 8192);
    EXPECT_STREQ(error.str, "success");
    vxlb_json_free(json);
    json = vxlb_json_init_buffer("{\"a\":1}x", 7, 0, &error);
    EXPECT_EQ(JsonModel("{\"a\":1}x", 7, 0).difference(json), "");
    EXPECT_EQ(json->buffer_length, 8);
    EXPECT_EQ(json->fp, nullptr);
    vxlb_json_free(json);
    vxlb_json_free(nullptr);
}

std::string init_error(const char *path, int16_t levels = 0, int window = 0) {
    vxlb_json_error error;
    vxlb_json_t *json = vxlb_json_init(path, levels, window, &error);
    EXPECT_EQ(json, nullptr);
    return error.str;
}

TEST(VxlbJsonParser, RefusesWhatIsNoRegularFile) {
    const std::string dir = testing::TempDir() + "vxlb_json_" + std::to_string(getpid());
    ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
    const std::string fifo = dir + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string head = "Failed to open input file '";
    EXPECT_EQ(init_error("/no/such"), head + "/no/such', error: No such file or directory");
    EXPECT_EQ(init_error(dir.c_str()), head + dir + "', error: Is a directory");
    EXPECT_EQ(init_error(fifo.c_str()), head + fifo + "', error: Invalid argument");
    EXPECT_EQ(init_error("/dev/zero"), head + "/dev/zero', error: Invalid argument");
    EXPECT_EQ(init_error(std::string(3000, 'x').c_str()).size(), 1023U);
    EXPECT_EQ(init_error(nullptr), "Invalid Arguments");
    EXPECT_EQ(init_error("/dev/null", -1), "Invalid Arguments");
    EXPECT_EQ(init_error("/dev/null", 0, -1), "Invalid Arguments");
    EXPECT_EQ(vxlb_json_init_buffer(nullptr, 0, 0, nullptr), nullptr);
    EXPECT_EQ(vxlb_json_init("/no/such", 0, 0, nullptr), nullptr);
    unlink(fifo.c_str());
    rmdir(dir.c_str());
}

TEST(VxlbJsonParser, TakesThePresetStreamOnce) {
    const MemoryFile file(R"({"a":"b"})");
    vxlb_json_file_fp = fopen(file.path.c_str(), "r");
    vxlb_json_t *json = vxlb_json_init("/no/such", 0, 1, nullptr);
    EXPECT_EQ(vxlb_json_file_fp, nullptr);
    EXPECT_EQ(json->f_size, 9);
    EXPECT_EQ(run(json, "{nvvn"), "a2<b><b>!5");
    vxlb_json_free(json);
    char text[] = "{}";
    vxlb_json_file_fp = fmemopen(text, 2, "r"); // has no descriptor to ask
    char message[100];
    snprintf(message, sizeof message, "Failed to stat file for fp - %p, error: Bad file descriptor",
             static_cast<void *>(vxlb_json_file_fp));
    EXPECT_EQ(init_error("x"), message);
    EXPECT_EQ(vxlb_json_file_fp, nullptr);
}

TEST(VxlbJsonParser, ArgumentsAndStatesAreChecked) {
    const Handle h(R"({"a":[1]})", 0, 3);
    EXPECT_EQ(vxlb_json_goto_element(h.json, nullptr), -1);
    EXPECT_EQ(h.json->error, 9);
    EXPECT_EQ(vxlb_json_element_name(h.json), h.json->c_element_name); // empty: nothing read yet
    EXPECT_EQ(__check_parse_operation(h.json, 6), 0);
    EXPECT_EQ(__parse_json(h.json, 6), -1);
    EXPECT_EQ(h.json->error, 3);
    EXPECT_EQ(vxlb_json_open_obj(h.json), 0);
    h.json->error = 0;
    EXPECT_EQ(vxlb_json_element_name(h.json), nullptr);
    EXPECT_EQ(h.json->error, 3);
    EXPECT_EQ(vxlb_json_goto_array_item(h.json, -1), -1);
    EXPECT_EQ(h.json->error, 9);
    EXPECT_EQ(vxlb_json_next_element(h.json), 0);
    EXPECT_STREQ(vxlb_json_element_name(h.json), "a");
    EXPECT_EQ(vxlb_json_open_array(h.json), 0);
    EXPECT_EQ(vxlb_json_next_array_item(h.json), 0);
    EXPECT_EQ(vxlb_json_element_name(h.json), nullptr);
    EXPECT_EQ(vxlb_json_close_array(h.json), 0);
    EXPECT_EQ(vxlb_json_close_obj(h.json), 0);
    EXPECT_EQ(run(Handle(R"({"a":{"b":{}}})", 0, 3).json, "{n{n{"), "a0b0!4");
    EXPECT_EQ(run(Handle("{}", 5, 1).json, "{"), "!4");
    const char *const texts[] = {"success",
                                 "unexpected end of file",
                                 "invalid format of file",
                                 "Invalid operation",
                                 "maximum depth reached",
                                 "object ended",
                                 "array ended",
                                 "Failed to read data from Input file",
                                 "Element Not Found",
                                 "Invalid Arguments"};
    for (size_t i = 0; i < std::size(texts); i++) {
        EXPECT_STREQ(vxlb_json_error_string[i], texts[i]);
    }
}

TEST(VxlbJsonParser, NamesKeep511Bytes) {
    for (const size_t length : {510U, 511U, 512U, 513U, 70000U}) {
        const std::string doc = "{\"" + std::string(length, 'n') + "\":1,\"b\":2}";
        for (const int window : {0, 7, 8192}) {
            const Handle h(doc, window);
            EXPECT_EQ(run(h.json, "{nn"), std::string(std::min<size_t>(length, 511), 'n') + "3b3");
        }
    }
}

TEST(VxlbJsonParser, BracketCountsWrapAt16Bits) {
    for (const int count : {32767, 32768, 65535, 65536, 70000}) {
        const auto n = static_cast<size_t>(count);
        for (const std::string &doc :
             {"{\"a\":[" + std::string(n, '{') + ",\"b\":1}}",
              "{\"a\":[" + std::string(n, '[') + "],1" + std::string(n, ']') + ",2]}"}) {
            const Handle h(doc, 0);
            JsonModel model(doc, 128, 0);
            for (const int op : {0, 4, 4, 4, 2, 5, 5, 5, 3}) {
                EXPECT_EQ(__parse_json(h.json, static_cast<unsigned char>(op)), model.move(op));
                EXPECT_EQ(model.difference(h.json), "") << count << " " << op;
            }
        }
    }
}

TEST(VxlbJsonParser, ReadErrorsEndTheMove) {
    const Handle h(R"({"a":"long value","b":1})", 4);
    EXPECT_EQ(run(h.json, "{n"), "a2");
    int length = -1;
    const int nowhere = open("/", O_RDONLY | O_DIRECTORY); // reads fail, seeks don't
    ASSERT_EQ(dup2(nowhere, fileno(h.json->fp)), fileno(h.json->fp));
    EXPECT_EQ(run(h.json, "nav"), "!7!7!7");
    EXPECT_EQ(vxlb_json_element_value(h.json, &length, 0, 0), nullptr);
    EXPECT_EQ(length, 0);
    close(nowhere);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(dup2(ends[0], fileno(h.json->fp)), fileno(h.json->fp)); // can't seek
    EXPECT_EQ(run(h.json, "a"), "!7");
    close(ends[0]);
    close(ends[1]);
}

TEST(VxlbJsonParser, FileThatChangedInSize) {
    Handle h(R"({"a":"long value","b":1})", 1);
    EXPECT_EQ(run(h.json, "{n"), "a2");
    h.json->offset = h.json->f_size + 1; // as after reading what has been appended meanwhile
    h.json->error = 0;
    EXPECT_EQ(run(h.json, "n"), "!0");
    int length = 5;
    EXPECT_EQ(vxlb_json_element_value(h.json, &length, 0, 0), nullptr);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(h.json->error, 7); // a string has two quotes at least
}

TEST(VxlbJsonParser, ShortReadOfAValueIsSaid) {
    const std::string doc = R"({"a":"long value","b":1})";
    const Handle h(doc, static_cast<int>(doc.size()));
    EXPECT_EQ(run(h.json, "{n"), "a2");
    ASSERT_EQ(ftruncate(h.file.fd, 9), 0);
    h.json->buf_max = 17; // the value ends with the window, so it is read again
    h.json->offset = 17;
    h.json->buffer[17] = '\0';
    testing::internal::CaptureStderr();
    int length = 0;
    EXPECT_EQ(vxlb_json_element_value_ex(h.json, &length, 1, 0, 1), nullptr);
    EXPECT_EQ(h.json->error, 7);
    EXPECT_EQ(length, 10);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to read from file, error = Success\n");
}

TEST(VxlbJsonParser, ValuesOfAnyLength) {
    for (const size_t length : {0U, 1U, 8191U, 8192U, 65535U, 65536U, 65537U, 200000U}) {
        const std::string text(length, 'v');
        for (const int window : {0, 1, 64, 8192}) {
            const Handle h("{\"a\":\"" + text + "\",\"b\":" + std::string(length + 1, '1') + "}",
                           window);
            EXPECT_EQ(run(h.json, "{nvvnv"),
                      "a2<" + text + "><" + text + ">b3<" + std::string(length + 1, '1') + ">");
            EXPECT_EQ(h.json->return_buf_len,
                      static_cast<int>(std::max<size_t>(65536, length + 1)));
        }
    }
}

TEST(VxlbJsonParser, OwnCopiesBelongToTheCaller) {
    const Handle h(R"({"a":"x\ny"})", 0);
    ASSERT_EQ(run(h.json, "{n"), "a2");
    int length = 0;
    char *raw = vxlb_json_element_value(h.json, &length, 1, 0);
    EXPECT_STREQ(raw, "x\\ny");
    EXPECT_EQ(length, 4);
    char *decoded = vxlb_json_element_value_ex(h.json, &length, 1, 1, 0);
    EXPECT_STREQ(decoded, "x\ny");
    EXPECT_EQ(length, 3);
    EXPECT_NE(decoded, h.json->return_buf);
    VXLB_FREE(raw, "raw", -1);
    VXLB_FREE(decoded, "decoded", -1);
    const Handle last(R"({"a":12)", 0);
    EXPECT_EQ(run(last.json, "{nv"), "a3!1");
    const Handle edge(R"({"a":"1")", 0);
    EXPECT_EQ(run(edge.json, "{n"), "a2");
    EXPECT_EQ(vxlb_json_element_value(edge.json, &length, 1, 0), nullptr);
    EXPECT_EQ(edge.json->error, 7); // the value ends with the input
}

TEST(VxlbJsonParser, EscapesDecodeInPlace) {
    const struct {
        std::string in, out;
    } cases[] = {
        {R"(\n\r\t\"\\)", "\n\r\t\"\\"},
        {R"(a\/b)", std::string("a\0b", 3)},
        {R"(\u0041)", std::string("\0"
                                  "0041",
                                  5)},
        {"x\\", "x"},
        {"", ""},
        {R"(\\n)", "\\n"},
    };
    for (const auto &c : cases) {
        std::string text = c.in;
        int length = -1;
        replace_escaped_char(text.data(), &length);
        EXPECT_EQ(std::string(text.data(), static_cast<size_t>(length)), c.out);
        EXPECT_EQ(text[static_cast<size_t>(length)], '\0');
    }
}

// One random step of both; false if they differ.
bool same_step(JsonMaker &random, vxlb_json_t *json, JsonModel &model) {
    int result = 0, expected = 0, length = -1;
    const unsigned what = random.below(20);
    if (what < 14) {
        const bool fits = random.below(4) != 0; // mostly a move that can succeed
        const int in = model.depth >= 0 && model.states[static_cast<size_t>(model.depth)] == 1;
        const int op = !fits                                    ? static_cast<int>(random.below(6))
                       : model.type < 2 && random.below(2) == 0 ? model.type * 2
                       : random.below(8) == 0                   ? 1 + 2 * in
                                                                : 4 + in;
        result = __parse_json(json, static_cast<unsigned char>(op));
        expected = model.move(op);
    } else if (what == 14) {
        const std::string name = random.pick({"a", "b", "kind", ""});
        result = vxlb_json_goto_element(json, name.c_str());
        expected = model.goto_element(name);
    } else if (what == 15) {
        const int index = static_cast<int>(random.below(4)) - 1;
        result = vxlb_json_goto_array_item(json, index);
        expected = model.goto_item(index);
    } else {
        const bool own = random.below(4) == 0, decode = random.below(2) == 0,
                   reset = random.below(2) == 0;
        char *value = vxlb_json_element_value_ex(json, &length, own, decode, reset);
        const auto text = model.value(decode, reset, own);
        const bool same = value == nullptr
                              ? !text
                              : text && *text == std::string(value, static_cast<size_t>(length)) &&
                                    value[length] == '\0' && own == (value != json->return_buf);
        if (own) {
            free(value);
        }
        return same;
    }
    return result == expected;
}

TEST(VxlbJsonParser, AgreesWithThePlainModelAfterEveryStep) {
    const int windows[] = {0, 0, 1, 2, 3, 5, 8, 13, 17, 33, 64, 8192};
    for (unsigned seed = 1; seed <= 6000; seed++) {
        JsonMaker random(seed);
        const std::string doc = random.document();
        const int window = windows[random.below(std::size(windows))];
        if (window == 0 && doc.empty()) {
            continue;
        }
        const auto levels = static_cast<int16_t>(2 + random.below(5));
        const Handle h(doc, window, levels);
        JsonModel model(doc, levels, window);
        for (int step = 0; step < 40; step++) {
            ASSERT_TRUE(same_step(random, h.json, model)) << seed << " step " << step << "\n"
                                                          << doc;
            ASSERT_EQ(model.difference(h.json), "") << seed << " step " << step << "\n" << doc;
        }
    }
}

TEST(VxlbJsonParser, EveryRoadOfSkippingStopsAtTheSameByte) {
    JsonMaker random(1);
    for (int round = 0; round < 20000; round++) {
        std::string text(random.below(60), round % 2 == 0 ? ' ' : '\n');
        for (size_t i = random.below(60); i < text.size(); i++) {
            char &c = text[i];
            c = random.below(20) == 0 ? static_cast<char>(random.below(256))
                                      : static_cast<char>('a' + random.below(26));
        }
        const char *p = text.data();
        const char *end = p + text.size();
        const char *string_stop = std::find_if(p, end, stops_string);
        const char *structure_stop = std::find_if(p, end, stops_structure);
        EXPECT_EQ(skip_string_words(p, end), string_stop);
        EXPECT_EQ(skip_string(p, end), string_stop);
        const char *first = std::find_if_not(p, end, is_json_space);
        EXPECT_EQ(skip_blanks(p, end), first);
        for (const auto skip : {skip_structure_words, skip_structure}) {
            const char *stop = skip(p, end);
            while (stop < structure_stop && strchr("|\x02\x0c\x1b\x1d", *stop) != nullptr) {
                stop = skip(stop + 1, end); // a stop without meaning
            }
            EXPECT_EQ(stop, structure_stop) << text;
        }
        const char *literal_stop = std::find_if(p, end, stops_literal);
        for (const auto skip : {skip_literal_words, skip_literal}) {
            const char *stop = skip(p, end);
            EXPECT_TRUE(stop == literal_stop || (stop < literal_stop && *stop == '|')) << text;
        }
    }
}

} // namespace
