# Copies fenced code blocks out of a Markdown file, each into a file of its
# own, PREFIX01.LANG, PREFIX02.LANG and so on in the order they come, where
# LANG is the first word of the block's info string. Only blocks whose info
# string matches the regular expression INFO are taken and, when PART is
# given, only those under the heading or bold line that starts with PART, up
# to the next heading or bold line. Prints the files' names.
#
#   awk -v info='^(sh|cpp)$' -v prefix=DIR/block- [-v part='## Quick start'] \
#     -f code_blocks.awk FILE.md
BEGIN { inside = part == "" }
/^```/ {
  if (!fenced) {
    fenced = 1
    split(substr($0, 4), words, " ")
    if (inside && substr($0, 4) ~ info) {
      file = sprintf("%s%02d.%s", prefix, ++count, words[1])
      printf "" >file
      print file
    }
  } else if ($0 == "```") {
    fenced = 0
    if (file) close(file)
    file = ""
  }
  next
}
fenced { if (file) print >file; next }
part != "" && /^(#+ |\*\*)/ { inside = index($0, part) == 1 }
