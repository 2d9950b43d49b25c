// The built-in first-stage kernel against the library's own, on the same bytes: the same error,
// and on success the same structural positions and guard entries; the same unescaped strings.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "snapshot/JsonLibrary.h"

namespace {

using Kernel = simdjson::internal::atomic_ptr<const simdjson::implementation>;
using Stage = std::unique_ptr<simdjson::internal::dom_parser_implementation>;

const simdjson::implementation* libraryKernel() {
  static void* lib = dlopen(ROVA_TEST_SIMDJSON_SONAME, RTLD_LAZY | RTLD_LOCAL);
  if (!lib) return nullptr;
  auto get =
      reinterpret_cast<Kernel& (*)()>(dlsym(lib, "_ZN8simdjson25get_active_implementationEv"));
  return get ? static_cast<const simdjson::implementation*>(get()) : nullptr;
}

struct Indexed {
  simdjson::error_code error;
  std::vector<std::uint32_t> positions;  // with the three guard entries, on success
};

Indexed index(const simdjson::implementation& kernel, const std::string& text) {
  Stage stage;
  EXPECT_EQ(int(kernel.create_dom_parser_implementation(text.size() + 64, 1024, stage)), 0);
  const simdjson::padded_string padded(text);
  Indexed out;
  out.error = stage->stage1(reinterpret_cast<const std::uint8_t*>(padded.data()), text.size(),
                            simdjson::stage1_mode::regular);
  if (out.error == simdjson::SUCCESS)
    out.positions.assign(stage->structural_indexes.get(),
                         stage->structural_indexes.get() + stage->n_structural_indexes + 3);
  return out;
}

// The text of a string's body (past its opening quote), or "<refused>".
std::string unescape(const simdjson::implementation& kernel, const std::string& body) {
  Stage stage;
  EXPECT_EQ(int(kernel.create_dom_parser_implementation(body.size() + 64, 1024, stage)), 0);
  const simdjson::padded_string padded(body);
  std::vector<std::uint8_t> out(body.size() * 4 + 64);
  const std::uint8_t* end =
      stage->parse_string(reinterpret_cast<const std::uint8_t*>(padded.data()), out.data());
  if (!end) return "<refused>";
  return std::string(reinterpret_cast<const char*>(out.data()), end - out.data());
}

void expectSameIndex(const std::string& text) {
  const Indexed theirs = index(*libraryKernel(), text);
  const Indexed ours = index(*Snapshot::builtinJsonKernel(), text);
  EXPECT_EQ(int(ours.error), int(theirs.error)) << "document: " << text;
  EXPECT_EQ(ours.positions, theirs.positions) << "document: " << text;
}

std::string exampleDevice() {
  std::ifstream in(ROVA_TEST_EXAMPLE_JSON);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

TEST(JsonKernel, IndexesLikeTheLibraryOnChosenDocuments) {
  ASSERT_NE(libraryKernel(), nullptr) << dlerror();
  const std::vector<std::string> documents = {
      "", " \t\r\n", "{}", "[]", "1", "-12.5e+3", "true", "null", R"("")", R"("abc")",
      R"({"a": [1, 2, {"b": null}], "c": "d"})",
      // Escapes: quotes after odd and even runs of backslashes, in and out of strings.
      R"(["a\"b", "c\\", "d\\\"e", "\\\\"])", R"(\"a")", R"(\\"a")", R"(["\u00e9\/"])",
      // Values that run into each other or into a string.
      R"(12"x")", R"(["a"b])", R"(tru e)", R"({"a"1})", R"([1,,2]])", "{\"a\":}",
      // Unclosed strings, control bytes inside and outside strings.
      R"({"a": "b)", "\"", "[\"a\tb\"]", "[\"a\nb\"]", "[1\x01]", "\"\x1f\"",
      // UTF-8: good, overlong, surrogate, past U+10FFFF, cut short, stray continuation.
      "[\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\"]", "[\"\xc0\x80\"]", "[\"\xed\xa0\x80\"]",
      "[\"\xf4\x90\x80\x80\"]", "[\"\xe2\x82\"]", "[\"\x80\"]", "\xef\xbb\xbf{}", "[\xff]",
      "[\"\xe0\x9f\xbf\"]", "[\"\xf0\x8f\xbf\xbf\"]", "\"\xc3", "\xc3"};
  for (const std::string& d : documents)
    expectSameIndex(d);
  // Every length of a real document: each cut ends somewhere else, often inside a string.
  const std::string example = exampleDevice();
  ASSERT_GT(example.size(), 1000u);
  expectSameIndex(example);
  for (std::size_t cut = 0; cut < 600; ++cut)
    expectSameIndex(example.substr(0, cut));
}

TEST(JsonKernel, IndexesLikeTheLibraryOnMangledDocuments) {
  ASSERT_NE(libraryKernel(), nullptr) << dlerror();
  const std::string base = exampleDevice().substr(0, 3000);
  const std::string alphabet = std::string("\"\\{}[]:, \t\n\rab01-.eu/") + "\x01\x1f\x7f" +
                               "\x80\xbf\xc2\xc3\xe0\xed\xef\xf0\xf4\xf5\xff";
  std::mt19937 random(7);
  for (int round = 0; round < 4000; ++round) {
    std::string text = base.substr(random() % 2000, 64 + random() % 400);
    const int edits = 1 + random() % 6;
    for (int e = 0; e < edits; ++e) {
      const std::size_t at = random() % (text.size() + 1);
      const char c = alphabet[random() % alphabet.size()];
      switch (random() % 3) {
        case 0:
          text.insert(at, 1, c);
          break;
        case 1:
          if (at < text.size()) text[at] = c;
          break;
        default:
          if (at < text.size()) text.erase(at, 1 + random() % 3);
          break;
      }
    }
    expectSameIndex(text);
    if (HasFailure()) return;
  }
}

// Long documents, where the kernel reads sixty-four bytes at a time: every offset of a real
// document against the block boundaries, strings running over several blocks, and a backslash,
// a quote or a control byte on either side of a boundary.
TEST(JsonKernel, IndexesLikeTheLibraryAcrossBlocks) {
  ASSERT_NE(libraryKernel(), nullptr) << dlerror();
  const std::string example = exampleDevice().substr(0, 1500);
  for (std::size_t shift = 0; shift < 64; ++shift) {
    expectSameIndex(std::string(shift, ' ') + example);
    const std::string longString = "[\"" + std::string(60 + shift * 3, 'x') + "\", 1]";
    expectSameIndex(std::string(shift, ' ') + longString + std::string(shift, '\n'));
  }
  const std::vector<std::string> around = {"\\\"",     "\\\\\"", "\"", "\\", "\x01", "\\u00e9",
                                           "\xc3\xa9", "{",      ",",  " ",  "1"};
  std::mt19937 random(11);
  for (int round = 0; round < 3000; ++round) {
    std::string text = "[\"" + std::string(100 + random() % 200, 'a') + "\", {\"k\": \"" +
                       std::string(random() % 150, 'b') + "\"}, 12, true]";
    const int edits = 1 + random() % 3;
    for (int e = 0; e < edits; ++e) {
      // Near a block boundary: the last byte of a block, or the first of the next.
      const std::size_t block = 64 * (1 + random() % (text.size() / 64));
      const std::size_t at = std::min(text.size(), block - 2 + random() % 4);
      text.insert(at, around[random() % around.size()]);
    }
    expectSameIndex(text);
    if (HasFailure()) return;
  }
}

TEST(JsonKernel, UnescapesLikeTheLibrary) {
  ASSERT_NE(libraryKernel(), nullptr) << dlerror();
  const std::vector<std::string> bodies = {R"(plain")",
                                           R"(a\"b")",
                                           R"(\\\/\b\f\n\r\t")",
                                           R"(\u0041\u00e9\u20ac")",
                                           R"(\ud83d\ude00 pair")",
                                           R"(\uD83D\uDE00 upper")",
                                           R"(\ud800 lone high")",
                                           R"(\ud800\u0041 high then plain")",
                                           R"(\ud800\ue000 high then past the low range")",
                                           R"(\udc00 lone low")",
                                           R"(\u12 short")",
                                           R"(\u12g4 bad digit")",
                                           R"(\x bad escape")",
                                           R"(\ud800\ud800 two highs")",
                                           "caf\xc3\xa9 bytes as they are\"",
                                           R"(\u0000 nul")"};
  for (const std::string& b : bodies)
    EXPECT_EQ(unescape(*Snapshot::builtinJsonKernel(), b), unescape(*libraryKernel(), b)) << b;
}

// A small document is read by the built-in kernel and a large one by the library's, unless
// the program has given up the library (the statically linked rova program).
TEST(JsonKernel, SmallDocumentsNeverOpenTheLibrary) {
  {
    const Snapshot::JsonKernelFor small(100);
    EXPECT_EQ(simdjson::get_active_implementation()->name(), "rova_scalar");
  }
  {
    const Snapshot::JsonKernelFor large(Snapshot::kBuiltinJsonKernelLimit + 1);
    EXPECT_NE(simdjson::get_active_implementation()->name(), "rova_scalar");
  }
  // Last in this program: the switch is for good.
  Snapshot::useBuiltinJsonKernelOnly();
  const Snapshot::JsonKernelFor large(Snapshot::kBuiltinJsonKernelLimit + 1);
  EXPECT_EQ(simdjson::get_active_implementation()->name(), "rova_scalar");
}

}  // namespace
