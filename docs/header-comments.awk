# Doxygen input filter: reads a header of this tree and prints it with its
# plain comments turned into documentation comments, so that the API
# reference is made from the comments as they are written (plain "//", the
# contract stated where it is declared) without a second comment style.
#
# - The first comment block of the file, before any code, documents the
#   file.
# - A comment block at namespace or class scope documents the declaration
#   that follows it on the next line. A block followed by a blank line, a
#   preprocessor line, a closing brace or an access label documents nothing
#   and stays plain.
# - A comment after a declaration or an enumerator on the same line
#   documents that declaration.
# - Comments inside function bodies stay plain.
# Characters that Doxygen would read as commands or markup ("\", "@", "<",
# ">", "&", "#", "%", "$") are escaped in converted comments.
#
# Run as: awk -f header-comments.awk FILE

function escape(text,    out, i, c) {
  out = ""
  for (i = 1; i <= length(text); ++i) {
    c = substr(text, i, 1)
    if (index("\\@<>&#%$", c) > 0) out = out "\\"
    out = out c
  }
  return out
}

# The code of a line without string and character literals and without a
# trailing comment.
function code(line,    out) {
  out = line
  gsub(/"([^"\\]|\\.)*"/, "\"\"", out)
  gsub(/'([^'\\]|\\.)*'/, "''", out)
  sub(/\/\/.*$/, "", out)
  return out
}

function inBody(    i) {
  for (i = 1; i <= depth; ++i) if (kind[i] == "body") return 1
  return 0
}

# Follows the braces of a line of code: a brace opened after "class",
# "struct", "union", "enum" or "namespace" (since the last statement or
# brace, over several lines) opens a scope, any other a body.
function braces(text,    i, c) {
  for (i = 1; i <= length(text); ++i) {
    c = substr(text, i, 1)
    if (c == "{") {
      kind[++depth] = (pending ~ /(^|[^A-Za-z_0-9])(class|struct|union|enum|namespace)([^A-Za-z_0-9]|$)/) ? "scope" : "body"
      pending = ""
    } else if (c == "}") {
      if (depth > 0) --depth
      pending = ""
    } else if (c == ";") {
      pending = ""
    } else {
      pending = pending c
    }
  }
  pending = pending " "
}

# Prints the comment block held, as documentation when `documents` is set.
function flush(documents, fileDoc,    i, line, lead, text) {
  for (i = 1; i <= held; ++i) {
    line = block[i]
    if (!documents) {
      print line
      continue
    }
    lead = line
    sub(/\/\/.*$/, "", lead)
    text = line
    sub(/^[ \t]*\/\/ ?/, "", text)
    if (fileDoc && i == 1) print lead "/// @file"
    text = escape(text)
    # A block that opens with its number ("6. Programs ...", "9-13. ...")
    # is not a numbered list.
    if (i == 1 && match(text, /^[0-9]+(-[0-9]+)?\. /)) text = substr(text, 1, RLENGTH - 2) "\\. " substr(text, RLENGTH + 1)
    print lead "/// " text
  }
  held = 0
}

BEGIN { depth = 0; held = 0; seenCode = 0; pending = "" }

# A comment line (not one already written for Doxygen).
/^[ \t]*\/\/([^\/!]|$)/ {
  if (inBody()) {
    print
    next
  }
  block[++held] = $0
  next
}

{
  if (held > 0) {
    if (!seenCode && $0 !~ /^[ \t]*$/ || !seenCode && $0 ~ /^#/) {
      flush(1, 1)
    } else if ($0 ~ /^[ \t]*$/ || $0 ~ /^[ \t]*#/ || $0 ~ /^[ \t]*}/ || $0 ~ /^[ \t]*(public|private|protected):/) {
      flush(0, 0)
    } else {
      flush(1, 0)
    }
  }
  line = $0
  if ($0 !~ /^[ \t]*$/ && $0 !~ /^#pragma/) seenCode = 1
  if ($0 ~ /^[ \t]*#/) {
    print
    next
  }
  # A trailing comment after a declaration or an enumerator documents it.
  if (!inBody() && match(line, /[;,][ \t]*\/\/ ?/) && code(line) ~ /[;,][ \t]*$/) {
    print substr(line, 1, RSTART) "  ///< " escape(substr(line, RSTART + RLENGTH))
  } else {
    print line
  }
  braces(code(line))
}

END { flush(0, 0) }
