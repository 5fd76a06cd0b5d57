# Shows the plain comments of the public headers to Doxygen, which wants marked ones. What stands
# above a declaration belongs to it, what stands behind one too, and the comment at the top of a
# file is the file's.

# The text of a comment without what Doxygen would act on. Indented lines are code, shown as it is.
function text(line) {
    sub(/^ *\/\/ ?/, "", line)
    if (line !~ /^    /) {
        gsub(/[\\@]/, "\\\\&", line)
        gsub(/</, "\\<", line)
    }
    gsub(/\*\//, "* /", line)
    return line
}

BEGIN { top = 1 }
top && /^\/\// {
    if (!opened) print "/** @file"
    opened = 1
    print text($0)
    next
}
top {
    top = 0
    if (opened) print "*/"
}
{ sub(/ *\/\/ NOLINT.*/, "") }
/^ *\/\// {
    indent = $0
    sub(/\/\/.*/, "", indent)
    print indent "/// " text($0)
    next
}
/[;,] *\/\/ / {
    at = match($0, / *\/\/ /)
    code = substr($0, 1, at - 1)
    # A declaration of somebody else's type has no page.
    print code (code ~ /^(struct|class) / ? "" : " ///< " text(substr($0, at)))
    next
}
{ print }
