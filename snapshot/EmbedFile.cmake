# Writes the file IN as a C++ string returned by Snapshot::embeddedExample(), into OUT.
# A raw string literal keeps the text byte for byte; the delimiter cannot occur in JSON.
file(READ ${IN} content)
file(WRITE ${OUT}.tmp
  "// Generated from ${IN}; do not edit.\n"
  "#include \"snapshot/Snapshot.h\"\n\n"
  "namespace Snapshot {\n"
  "std::string_view embeddedExample() {\n"
  "  static constexpr char kText[] = R\"rova_json(${content})rova_json\";\n"
  "  return std::string_view(kText, sizeof kText - 1);\n"
  "}\n"
  "}  // namespace Snapshot\n")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
