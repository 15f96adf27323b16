// SPDX-License-Identifier: Apache-2.0
// Read documents (four bytes of length, then the document) and write what each tree holds: a line a node
// with its depth, type, name and value, bytes as hexadecimal digits; "none" for no tree; an empty line.

#include <cstdint>
#include <cstdio>
#include <string>

#include <libvxcore/vxlb_json_parser.h>

static void write_hex(const char *text, size_t size) {
    for (size_t i = 0; i < size; i++) {
        printf("%02x", static_cast<unsigned char>(text[i]));
    }
}

static void write_node(const vxlb_jsont *node, int depth, bool has_name) {
    printf("%d %d ", depth, node->type);
    write_hex(node->name, has_name ? std::string(node->name).size() : 0);
    putchar(' ');
    write_hex(node->value, static_cast<size_t>(node->value == nullptr ? 0 : node->value_len));
    putchar('\n');
    for (const vxlb_jsont *c = node->children; c != nullptr; c = c->next_sib) {
        write_node(c, depth + 1, node->type == VXLB_JSON_OBJECT);
    }
}

int main() {
    for (uint32_t size; fread(&size, sizeof size, 1, stdin) == 1;) {
        std::string doc(size, '\0');
        if (fread(doc.data(), 1, size, stdin) != size) {
            return 1;
        }
        vxlb_json_t *json = vxlb_json_init_buffer(doc.data(), 200, static_cast<int>(size), nullptr);
        vxlb_jsont *tree = vxlb_json_to_jsont(json);
        if (tree != nullptr) {
            write_node(tree, 0, false);
            vxlb_jsont_free(tree);
        } else {
            printf("none\n");
        }
        vxlb_json_free(json);
        putchar('\n');
    }
    return 0;
}
