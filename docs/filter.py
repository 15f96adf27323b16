# SPDX-License-Identifier: Apache-2.0
"""Show Doxygen the comments of a header as they are meant.

The headers have plain comments. The first one is about the file, one behind a declaration is about
that declaration, and any other is about all that follows up to a blank line; a member without words
of its own is explained by those of its record. What is not for direct use is left out.
"""
import re
import sys


def escaped(text):
    """Words as they are, whatever they mean to Doxygen; drawings are indented, and stay."""
    lines = (re.sub(r"^ *\* ?", "", line) for line in text.split("\n"))
    return "\n".join(line if line.startswith("    ") else re.sub(r"([\\@&$#<>%\"|])", r"\\\1", line)
                     for line in lines).strip()


def with_comments_behind(code):
    return re.sub(r"(?<=\S) +/\*(.*?)\*/", lambda m: f" /**< {escaped(m[1])} */", code, flags=re.S)


def with_all_members(record, words):
    """Members end their line, unless a comment or the rest of the declaration follows."""
    return re.sub(r"^( +[^\n*]*\*?\w[^\n/]*[;,\w])$(?!\n *[\[/])",
                  lambda m: f"{m[1]} /**< {words} */", record, flags=re.M)


def explained(code, words):
    """The declarations up to a blank line, each with the words about all of them; then the rest."""
    if re.match(r"static inline|#define \w+\(", code):
        return f"/** {words} */\n{code}"
    paragraph, *rest = map(with_comments_behind, code.split("\n\n"))
    if re.match(r"typedef (struct|union)|enum", paragraph):
        paragraph = f"/** {words} */\n{with_all_members(paragraph, words)}"
    elif words:
        paragraph = "".join(f"/** {words} */\n{each}" for each in
                            re.split(r"^(?=[a-z]|#define)", paragraph, flags=re.M) if each.strip())
    return "\n\n".join([paragraph, *rest])


def main():
    with open(sys.argv[1], encoding="utf-8") as header:
        code = re.split(r"^/\* -.*not for direct use", header.read(), flags=re.M)[0]
    code = re.sub(r"^/\* (SPDX|---).*\n", "", code, flags=re.M)
    before, about, *parts = re.split(r"^/\*(.*?)\*/\n", code, flags=re.M | re.S)
    print(f"/** @file\n{escaped(about)} */\n{before}{explained(parts[0], '')}")
    for words, declared in zip(parts[1::2], parts[2::2]):
        print(explained(declared, escaped(words)))


main()
