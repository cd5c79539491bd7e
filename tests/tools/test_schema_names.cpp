// The schemas that files name in `$schema`: by a name that the catalog has, or by a path; neither leads to
// a host, and the files follow them. The readers of other formats take the member, too.
#include <gmock/gmock.h>

#include <map>

#include "policy/base/json_text.h"
#include "policy/formats/native/native.h"
#include "policy/formats/native/validator.h"
#include "tests/tools/support.h"

namespace {

using namespace qimctl;
using testing::HasSubstr;
using testing::StartsWith;

std::filesystem::path docs() {
  return tools_test::source_dir() / "docs";
}

JsonDocument read_json(const std::filesystem::path& file) {
  return parse_json(tools_test::read_text(file), file);
}

// Name -> file, as the catalog says.
std::map<std::string, std::filesystem::path> catalog() {
  const JsonDocument text = read_json(docs() / "catalog.json");
  std::map<std::string, std::filesystem::path> named;
  text.view().at("schemas").each([&](const std::string&, JsonView entry) {
    named.emplace(entry.at("name").text(), docs() / entry.at("url").text());
  });
  return named;
}

// The schema that a file names, or none.
std::filesystem::path schema_of(const std::filesystem::path& file, JsonView document) {
  if (!document.is_object() || !document.find("$schema")) return {};
  const std::string name = document.at("$schema").text();
  EXPECT_THAT(name, testing::Not(HasSubstr("://"))) << file;
  if (!name.starts_with("urn:")) return file.parent_path() / name;
  const auto named = catalog();
  const auto found = named.find(name);
  return found == named.end() ? std::filesystem::path("unknown") : found->second;
}

void expect_followed(const std::filesystem::path& file, const std::filesystem::path& schema) {
  const JsonDocument rules = read_json(schema);
  const JsonDocument document = read_json(file);
  EXPECT_TRUE(Validator(rules.view()).accepts(document.view())) << file;
}

TEST(SchemaNames, OfTheCatalogAreThoseOfItsFiles) {
  const auto named = catalog();
  EXPECT_THAT(named, testing::Contains(testing::Key(native_schema_name)));
  for (const auto& [name, file] : named) {
    const JsonDocument schema = read_json(file);
    EXPECT_EQ(schema.view().at("$id").text(), name);
    EXPECT_THAT(schema.view().at("$schema").text(), StartsWith("http://json-schema.org/draft-07/"));
  }
}

// Those of what commands print, too.
TEST(SchemaNames, AreInTheCatalogForEachSchema) {
  const auto named = catalog();
  size_t there = 0;
  for (const auto& entry : std::filesystem::directory_iterator(docs() / "schemas")) {
    const auto found = named.find("urn:qim:schema:" + entry.path().stem().string() + ":1");
    ASSERT_NE(found, named.end()) << entry.path();
    EXPECT_EQ(found->second, entry.path());
    ++there;
  }
  EXPECT_EQ(there + 1, named.size());
}

TEST(SchemaNames, OfExamplesLeadToWhatTheyFollow) {
  size_t naming = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(tools_test::source_dir() / "examples")) {
    if (entry.path().extension() != ".json") continue;
    const JsonDocument document = read_json(entry.path());
    const std::filesystem::path schema = schema_of(entry.path(), document.view());
    if (schema.empty()) continue;
    expect_followed(entry.path(), schema);
    ++naming;
  }
  EXPECT_GE(naming, 1u);
}

TEST(SchemaNames, OfDumpsLeadToWhatTheyFollow) {
  const tools_test::TempDir dir;
  const std::string example = tools_test::source_dir() / "examples/edge-all-types.json";
  ASSERT_EQ(tools_test::run_qimctl({"--db", dir / "db", "import", example}).code, 0);
  tools_test::write_text(dir / "dump", tools_test::run_qimctl({"--db", dir / "db", "dump"}).out);
  const JsonDocument dumped = read_json(dir / "dump");
  EXPECT_EQ(dumped.view().at("$schema").text(), native_schema_name);
  expect_followed(dir / "dump", schema_of(dir / "dump", dumped.view()));
}

TEST(SchemaNames, AreLeftAloneInFilesOfOtherFormats) {
  for (const char* name :
       {"edge-router.rfc8519.json", "campus.openconfig.json", "leaf.switch.json"}) {
    const tools_test::TempDir dir;
    std::string text = tools_test::read_text(tools_test::source_dir() / "examples" / name);
    text.insert(text.find('{') + 1, "\"$schema\": \"urn:example:editor\", ");
    tools_test::write_text(dir / name, text);
    const auto said = tools_test::run_qimctl({"--db", dir / "db", "import", "-v", dir / name});
    EXPECT_EQ(said.code, 0) << said.err;
    EXPECT_THAT(said.out + said.err, testing::Not(HasSubstr("$schema")));
  }
}

}  // namespace
