// SPDX-License-Identifier: Apache-2.0
// The parser driven by a script, beside the plain model, compared after every step.
//
//     window (0: buffer mode, 255: 8192) | levels | length of the script | script | document

#include "fuzz.h"
#include "json_handle.h"
#include "json_model.h"
#include "vxlb_json_internal.h"

namespace {

int move(vxlb_json_t *json, int what) {
    switch (what) {
    case OPEN_OBJ:
        return vxlb_json_open_obj(json);
    case CLOSE_OBJ:
        return vxlb_json_close_obj(json);
    case OPEN_ARRAY:
        return vxlb_json_open_array(json);
    case CLOSE_ARRAY:
        return vxlb_json_close_array(json);
    case NEXT_ELEMENT:
        return vxlb_json_next_element(json);
    default:
        return vxlb_json_next_array_item(json);
    }
}

void step(vxlb_json_t *json, JsonModel &model, unsigned char code) {
    const int what = code & 15;
    const int argument = code >> 4;
    if (what < 6) {
        check(move(json, what) == model.move(what));
    } else if (what < 8) {
        const std::string name(1, static_cast<char>('a' + argument));
        check(vxlb_json_goto_element(json, name.c_str()) == model.goto_element(name));
    } else if (what < 10) {
        check(vxlb_json_goto_array_item(json, argument - 1) == model.goto_item(argument - 1));
    } else if (what == 10) {
        const bool has_name = model.type != VXLB_JSON_NONE && model.depth >= 0 &&
                              model.states[static_cast<size_t>(model.depth)] != 1;
        check(vxlb_json_element_name(json) == (has_name ? json->c_element_name : nullptr));
        model.error = has_name ? model.error : VXLB_JSON_BAD_OPERATION;
    } else {
        int length = 0;
        const bool own = (argument & 4) != 0;
        char *value = vxlb_json_element_value_ex(json, &length, own ? 1 : 0, argument & 1,
                                                 static_cast<unsigned char>(argument & 2));
        const auto text = model.value((argument & 1) != 0, (argument & 2) != 0, own);
        check((value != nullptr) == text.has_value());
        check(value == nullptr || *text == std::string(value, static_cast<size_t>(length)));
        if (own) {
            free(value);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    static JsonHandle handle;
    if (size < 4 || size < 4U + data[2]) {
        return 0;
    }
    const int window = data[0] == 255 ? 8192 : data[0];
    const auto levels = static_cast<int16_t>(1 + data[1] % 40);
    const std::string doc(reinterpret_cast<const char *>(data) + 3 + data[2], size - 3 - data[2]);
    vxlb_json_t *json = handle.start(doc, levels, window);
    JsonModel model(doc, levels, window);
    for (size_t i = 0; i < data[2]; i++) {
        step(json, model, data[3 + i]);
        check(model.difference(json).empty());
    }
    return 0;
}
