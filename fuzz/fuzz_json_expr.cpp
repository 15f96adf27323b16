// SPDX-License-Identifier: Apache-2.0
// Both evaluators of path expressions, the collection beside a recursive model.
//
//     length of the expression | expression | document

#include "fuzz.h"
#include "json_handle.h"
#include "json_model.h"

namespace {

void collect(const vxlb_jsont *node, const json_expr_cond *cond, int n, std::vector<char *> &out) {
    if (node->type == VXLB_JSON_OBJECT) {
        for (const vxlb_jsont *c = n > 1 ? node->children : nullptr; c != nullptr;
             c = c->next_sib) {
            if (strcmp(c->name, cond[1].nodename) == 0) {
                return collect(c, cond + 1, n - 1, out);
            }
        }
    } else if (node->type == VXLB_JSON_ARRAY) {
        int position = 0;
        for (const vxlb_jsont *item = node->children; item != nullptr; item = item->next_sib) {
            bool takes = cond->con_type == 0 || (cond->con_type == 1 && position++ == cond->cidx);
            for (const vxlb_jsont *c = item->children;
                 c != nullptr && cond->con_type == 2 && item->type == VXLB_JSON_OBJECT;
                 c = c->next_sib) {
                takes = takes || (c->value != nullptr && strcmp(c->name, cond->cname) == 0 &&
                                  strcmp(c->value, cond->cvalue) == 0);
            }
            if (takes) {
                collect(item, cond, n, out);
            }
        }
    } else if (n == 1) {
        char *value = node->value; // the record is packed: no reference to its fields
        out.push_back(value);
    }
}

void check_collection(vxlb_jsont *tree, const std::string &expr) {
    std::string text = Pieces::copy(until_zero(expr));
    json_expr_cond *cond = nullptr;
    const int n = vxlb_str_to_expr_cond(text.data(), &cond);
    std::vector<char *> expected;
    if (n > 0) {
        collect(tree, cond, n, expected);
    }
    static char *values[5000];
    for (const int max : {5000, 1, 0}) {
        const int total =
            vxlb_jsont_eval_expr_str(tree, Pieces::copy(until_zero(expr)), values, max);
        check(total == std::min(max, static_cast<int>(expected.size())));
        check(std::equal(values, values + total, expected.begin()));
    }
    free(cond);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces::forget();
    if (size < 2 || size < 2U + data[0]) {
        return 0;
    }
    const std::string expr(reinterpret_cast<const char *>(data) + 1, data[0]);
    static JsonHandle handle;
    const std::string_view doc(reinterpret_cast<const char *>(data) + 1 + data[0],
                               size - 1 - data[0]);
    vxlb_json_t *json = handle.start(doc, 64, 0);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    if (tree != nullptr) {
        const vxlb_jsont *node = vxlb_jsont_eval_expr(tree, Pieces::copy(until_zero(expr)));
        check(node == nullptr || node->bbm == tree->bbm);
        check_collection(tree, expr);
        vxlb_jsont_free(tree);
    }
    return 0;
}
