// SPDX-License-Identifier: Apache-2.0
#include "json_document.h"
#include "trace_log.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <libvxcore/vxlb_alloc.h>

#include "vxlb_json_skip.h"

namespace {

// Letters of a script: { } [ ] n i for the moves, then a search letter or v for the value. Each
// step's answer.
std::string run(vxlb_json_t *json, const std::string &script) {
    std::string out;
    for (const char c : script) {
        const size_t op = std::string("{}[]ni").find(c);
        int result = 0, length = 0;
        if (op != std::string::npos) {
            result = __parse_json(json, static_cast<unsigned char>(op));
        } else if (c == 'v') {
            const char *value = vxlb_json_element_value_ex(json, &length, 0, 1, 1);
            result = value == nullptr ? -1 : 0;
            out += result == 0 ? "<" + std::string(value, static_cast<size_t>(length)) + ">" : "";
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
    const std::string cases = R"({"a":1,"b":{"c":2}} {nnn{ -> a3b0!5!1;{"a":[]} {n[i]i -> a1!6!3
{"a":1,"b":{"c":2}} {cb{cv}a -> !8<2>;{} {n}n} -> !5!1!1;{"a":[{},"s",{"b":1}]} {n[iii2 -> a100!6!8
{"a":["x","y"]} {n[iviv0v1v -> a12<x>2<y><x><y>;{"a":[1 , [2],"s"]} {n[iiiv -> a1333<"s">
{"a":[[1],{},[2]]} {n[ii[ii -> a1113!6;{"a\"b":1} {n -> !2;{"a":x} {n -> !2;{"a":F} {nv -> a3<F>
{"a":e,"b":G} {nn -> a3!2;{"a" 1} {n -> !2;{"s":"a\tb"} {nvv -> s2<a	b><a	b>
{"s":"x\\","t":"y"} {nv -> s2<x\",>;{"n":42} {nv -> n3<42>;{"a":{}} {nv{v -> a0!7!7
{"a":1} []i}v -> !3!3!3!1!7;}{ }n}{v -> !3!3!3!7
)"; // an escaped backslash hides the quote; behind a bracket too many every move is refused
    for (const int window : {0, 8192}) {
        EXPECT_EQ(cases, retold(cases, [&](const std::string &input) {
                      const size_t blank = input.rfind(' ');
                      return run(Handle(input.substr(0, blank), window).json,
                                 input.substr(blank + 1));
                  }));
    }
    EXPECT_EQ("n3<42\r>", run(Handle("{\"n\":42\r\n}", 0).json, "{nv"));
    EXPECT_EQ("33", run(Handle(" \t\n[1,2]", 0).json, "[ii"));
    EXPECT_EQ("!3", run(Handle("\r[1,2]", 0).json, "[")) << "an array only behind blanks";
    EXPECT_EQ("!3", run(Handle("[1,2]", 64).json, "[")) << "a file's top is taken for an object";
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
    EXPECT_EQ("8192 success", text("%d %s", json->buffer_length, error.str));
    vxlb_json_free(json);
    json = vxlb_json_init_buffer("{\"a\":1}x", 7, 0, &error);
    EXPECT_EQ(JsonModel("{\"a\":1}x", 7, 0).difference(json), "");
    EXPECT_TRUE(json->buffer_length == 8 && json->fp == nullptr);
    vxlb_json_free(json);
    vxlb_json_free(nullptr);
}

TEST(VxlbJsonParser, SaysWhyItCanNotBegin) {
    const auto init_error = [](const std::string &path, int16_t levels = 0, int window = 0) {
        vxlb_json_error error;
        EXPECT_EQ(nullptr, vxlb_json_init(path.c_str(), levels, window, &error));
        return std::string(error.str);
    };
    const TempDir dir;
    mkfifo((dir / "fifo").c_str(), 0600);
    for (const auto &[path, reason] :
         {std::pair<std::string, const char *>{"/no/such", "No such file or directory"},
          {dir.path, "Is a directory"},
          {dir / "fifo", "Invalid argument"},
          {"/dev/zero", "Invalid argument"}}) {
        EXPECT_EQ("Failed to open input file '" + path + "', error: " + reason, init_error(path));
    }
    EXPECT_EQ(init_error(std::string(3000, 'x')).size(), 1023U);
    EXPECT_EQ(init_error("/dev/null", -1) + init_error("/dev/null", 0, -1),
              "Invalid ArgumentsInvalid Arguments");
    EXPECT_EQ(vxlb_json_init(nullptr, 0, 0, nullptr), nullptr);
    EXPECT_EQ(vxlb_json_init_buffer(nullptr, 0, 0, nullptr), nullptr);
    const MemoryFile file(R"({"a":"b"})"); // a preset stream is taken, once
    vxlb_json_file_fp = fopen(file.path.c_str(), "r");
    vxlb_json_t *json = vxlb_json_init("/no/such", 0, 1, nullptr);
    EXPECT_TRUE(vxlb_json_file_fp == nullptr && json->f_size == 9);
    EXPECT_EQ(run(json, "{nvvn"), "a2<b><b>!5");
    vxlb_json_free(json);
    char braces[] = "{}";
    vxlb_json_file_fp = fmemopen(braces, 2, "r"); // has no descriptor to ask
    const void *const stream = vxlb_json_file_fp;
    EXPECT_EQ(text("Failed to stat file for fp - %p, error: Bad file descriptor", stream),
              init_error("x"));
    EXPECT_EQ(vxlb_json_file_fp, nullptr);
}

TEST(VxlbJsonParser, ArgumentsAndStatesAreChecked) {
    const Handle h(R"({"a":[1]})", 0, 3);
    const auto refused = [&](int result) { return result == -1 ? h.json->error : 0; };
    EXPECT_EQ(9, refused(vxlb_json_goto_element(h.json, nullptr)));
    EXPECT_EQ(vxlb_json_element_name(h.json), h.json->c_element_name); // empty: nothing read yet
    EXPECT_EQ(__check_parse_operation(h.json, 6), 0);
    EXPECT_EQ(3, refused(__parse_json(h.json, 6)));
    EXPECT_EQ(vxlb_json_open_obj(h.json), 0);
    h.json->error = 0;
    EXPECT_EQ(vxlb_json_element_name(h.json), nullptr);
    EXPECT_EQ(h.json->error, 3);
    EXPECT_EQ(9, refused(vxlb_json_goto_array_item(h.json, -1)));
    EXPECT_EQ(vxlb_json_next_element(h.json), 0);
    EXPECT_STREQ(vxlb_json_element_name(h.json), "a");
    EXPECT_EQ(vxlb_json_open_array(h.json) + vxlb_json_next_array_item(h.json), 0);
    EXPECT_EQ(vxlb_json_element_name(h.json), nullptr);
    EXPECT_EQ(vxlb_json_close_array(h.json) + vxlb_json_close_obj(h.json), 0);
    EXPECT_EQ(run(Handle("{}", 5, 1).json, "{"), "!4");
    std::string texts;
    for (int i = 0; i < 10; i++) {
        texts += vxlb_json_error_string[i] + std::string(", ");
    }
    EXPECT_EQ(
        "success, unexpected end of file, invalid format of file, Invalid operation, "
        "maximum depth reached, object ended, array ended, Failed to read data from Input file, "
        "Element Not Found, Invalid Arguments, ",
        texts);
}

TEST(VxlbJsonParser, NamesKeep511BytesAndBracketCounts16Bits) {
    for (const size_t length : {510U, 511U, 512U, 70000U}) {
        const std::string doc = "{\"" + std::string(length, 'n') + "\":1,\"b\":2}";
        for (const int window : {0, 7, 8192}) {
            EXPECT_EQ(run(Handle(doc, window).json, "{nn"),
                      std::string(std::min<size_t>(length, 511), 'n') + "3b3");
        }
    }
    for (const size_t n : {32767, 32768, 65535, 65536, 70000}) {
        for (const std::string &doc :
             {"{\"a\":[" + std::string(n, '{') + ",\"b\":1}}",
              "{\"a\":[" + std::string(n, '[') + "],1" + std::string(n, ']') + ",2]}"}) {
            const Handle h(doc, 0);
            JsonModel model(doc, 128, 0);
            for (const int op : {0, 4, 4, 4, 2, 5, 5, 5, 3}) {
                EXPECT_EQ(__parse_json(h.json, static_cast<unsigned char>(op)), model.move(op));
                EXPECT_EQ(model.difference(h.json), "") << n << " " << op;
            }
        }
    }
}

TEST(VxlbJsonParser, ReadErrorsEndTheMove) {
    const Handle h(R"({"a":"long value","b":1})", 4);
    EXPECT_EQ(run(h.json, "{n"), "a2");
    const int nowhere = open("/", O_RDONLY | O_DIRECTORY); // reads fail, seeks don't
    dup2(nowhere, fileno(h.json->fp));
    EXPECT_EQ(run(h.json, "nav"), "!7!7!7");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[0], fileno(h.json->fp)); // can't seek
    EXPECT_EQ(run(h.json, "a"), "!7");
    close(nowhere);
    close(ends[0]);
    close(ends[1]);
}

TEST(VxlbJsonParser, FilesMayChangeInSize) {
    const std::string doc = R"({"a":"long value","b":1})";
    const Handle grown(doc, 1);
    EXPECT_EQ(run(grown.json, "{n"), "a2");
    grown.json->offset =
        grown.json->f_size + 1; // as after reading what has been appended meanwhile
    grown.json->error = 0;
    EXPECT_EQ(run(grown.json, "nv"), "!0!7") << "a string has two quotes at least";
    const Handle cut(doc, static_cast<int>(doc.size()));
    EXPECT_EQ(run(cut.json, "{n"), "a2");
    ASSERT_EQ(ftruncate(cut.file.fd, 9), 0);
    cut.json->offset = cut.json->buf_max =
        17; // the value ends with the window, so it is read again
    cut.json->buffer[17] = '\0';
    EXPECT_EQ("Failed to read from file, error = Success\n", said([&] {
                  int length = 0;
                  EXPECT_EQ(vxlb_json_element_value_ex(cut.json, &length, 1, 0, 1), nullptr);
                  EXPECT_EQ("7 10", text("%d %d", cut.json->error, length));
              }));
}

TEST(VxlbJsonParser, ValuesOfAnyLength) {
    for (const size_t length : {0U, 1U, 8191U, 8192U, 65535U, 65536U, 65537U, 200000U}) {
        const std::string v(length, 'v'), n(length + 1, '1');
        for (const int window : {0, 1, 64, 8192}) {
            const Handle h("{\"a\":\"" + v + "\",\"b\":" + n + "}", window);
            EXPECT_EQ(run(h.json, "{nvvnv"), "a2<" + v + "><" + v + ">b3<" + n + ">");
            EXPECT_EQ(h.json->return_buf_len,
                      static_cast<int>(std::max<size_t>(65536, length + 1)));
        }
    }
}

TEST(VxlbJsonParser, OwnCopiesBelongToTheCaller) {
    const Handle h(R"({"a":"x\ny"})", 0);
    EXPECT_EQ(run(h.json, "{n"), "a2");
    int length = 0;
    char *raw = vxlb_json_element_value(h.json, &length, 1, 0);
    EXPECT_EQ("4 x\\ny", text("%d %s", length, raw));
    char *decoded = vxlb_json_element_value_ex(h.json, &length, 1, 1, 0);
    EXPECT_EQ("3 x\ny", text("%d %s", length, decoded));
    EXPECT_NE(decoded, h.json->return_buf);
    VXLB_FREE(raw, "raw", -1);
    VXLB_FREE(decoded, "decoded", -1);
    EXPECT_EQ(run(Handle(R"({"a":12)", 0).json, "{nv"), "a3!1");
    EXPECT_EQ(run(Handle(R"({"a":"1")", 0).json, "{nv"), "a2!7") << "ends with the input";
}

TEST(VxlbJsonParser, EscapesDecodeInPlace) {
    for (const auto &[in, out] :
         std::vector<std::pair<std::string, std::string>>{{R"(\n\r\t\"\\)", "\n\r\t\"\\"},
                                                          {R"(a\/b)", {"a\0b", 3}},
                                                          {R"(\u0a)",
                                                           {"\0"
                                                            "0a",
                                                            3}},
                                                          {"x\\", "x"},
                                                          {"", ""},
                                                          {R"(\\n)", "\\n"}}) {
        std::string bytes = in;
        int length = -1;
        replace_escaped_char(bytes.data(), &length);
        EXPECT_EQ(std::string(bytes.data(), static_cast<size_t>(length)), out);
        EXPECT_EQ(bytes[static_cast<size_t>(length)], '\0');
    }
}

TEST(VxlbJsonParser, EveryRoadOfSkippingStopsAtTheSameByte) {
    JsonMaker random(1);
    for (int round = 0; round < 20000; round++) {
        std::string bytes(random.below(60), round % 2 == 0 ? ' ' : '\n');
        for (size_t i = random.below(60); i < bytes.size(); i++) {
            const unsigned any = random.below(256);
            bytes[i] = static_cast<char>(random.below(20) == 0 ? any : 'a' + any % 26);
        }
        const char *p = bytes.data(), *end = p + bytes.size();
        const char *stop = std::find_if(p, end, stops_string);
        EXPECT_EQ(skip_string_words(p, end), stop);
        EXPECT_EQ(skip_string(p, end), stop);
        EXPECT_EQ(skip_blanks(p, end), std::find_if_not(p, end, is_json_space));
        stop = std::find_if(p, end, stops_structure);
        for (const auto skip : {skip_structure_words, skip_structure}) {
            const char *at = skip(p, end);
            while (at < stop && strchr("|\x02\x0c\x1b\x1d", *at) != nullptr) {
                at = skip(at + 1, end); // a stop without meaning
            }
            EXPECT_EQ(at, stop) << bytes;
        }
        stop = std::find_if(p, end, stops_literal);
        for (const auto skip : {skip_literal_words, skip_literal}) {
            const char *at = skip(p, end);
            EXPECT_TRUE(at == stop || (at < stop && *at == '|')) << bytes;
        }
    }
}

} // namespace
