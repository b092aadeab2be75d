// The committed Group Policy templates, read as Windows' policy editor reads them: valid, every
// reference resolvable in both languages, and every policy writing the very value (key, name,
// registry type, range, default) that the provider reads according to its settings catalogue.
// The administrator's guide to the settings is held to the same catalogue.

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlschemas.h>

#include <cwchar>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "settings/SettingsCatalogue.h"

namespace lm2::settings {
namespace {

const std::string kSource = LM2_SOURCE_DIR;
const std::string kAdmx = kSource + "/policy/LM2CredentialProvider.admx";
const std::map<std::string, std::string> kAdml = {
    {"en-US", kSource + "/policy/en-US/LM2CredentialProvider.adml"},
    {"de-DE", kSource + "/policy/de-DE/LM2CredentialProvider.adml"},
};

using Document = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

void collect(void* errors, xmlErrorPtr error) {
  if (error != nullptr && error->message != nullptr) {
    *static_cast<std::string*>(errors) += "line " + std::to_string(error->line) + ": " + error->message;
  }
}

Document load(const std::string& path, std::string& errors) {
  xmlParserCtxtPtr context = xmlNewParserCtxt();
  Document document(
      xmlCtxtReadFile(context, path.c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
      xmlFreeDoc);
  if (!document) {
    const xmlError* error = xmlCtxtGetLastError(context);
    errors = error != nullptr && error->message != nullptr ? error->message : "unreadable";
  }
  xmlFreeParserCtxt(context);
  return document;
}

Document load(const std::string& path) {
  std::string errors;
  Document document = load(path, errors);
  EXPECT_TRUE(document) << path << ": " << errors;
  return document;
}

std::vector<xmlNode*> children(const xmlNode* node, const char* name = nullptr) {
  std::vector<xmlNode*> found;
  if (node == nullptr) return found;
  for (xmlNode* child = node->children; child != nullptr; child = child->next) {
    if (child->type != XML_ELEMENT_NODE) continue;
    if (name == nullptr || std::string(reinterpret_cast<const char*>(child->name)) == name) found.push_back(child);
  }
  return found;
}

xmlNode* child(const xmlNode* node, const char* name) {
  const std::vector<xmlNode*> found = children(node, name);
  return found.empty() ? nullptr : found.front();
}

std::optional<std::string> attribute(const xmlNode* node, const char* name) {
  xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(name));
  if (value == nullptr) return std::nullopt;
  std::string text(reinterpret_cast<const char*>(value));
  xmlFree(value);
  return text;
}

std::string textOf(const xmlNode* node) {
  xmlChar* value = xmlNodeGetContent(node);
  std::string text(value != nullptr ? reinterpret_cast<const char*>(value) : "");
  xmlFree(value);
  return text;
}

std::string narrow(const wchar_t* text) { return std::string(text, text + std::wcslen(text)); }

const Setting* catalogueEntry(const std::string& name) {
  for (const Setting* s = settingsBegin(); s != settingsEnd(); ++s) {
    if (narrow(s->name) == name) return s;
  }
  return nullptr;
}

std::string registryType(SettingType type) {
  switch (type) {
    case SettingType::kString: return "REG_SZ";
    case SettingType::kNumber: return "REG_DWORD";
    case SettingType::kStringList: return "REG_MULTI_SZ";
  }
  return "?";
}

// Every "$(kind.id)" in the attributes of the document.
std::set<std::string> references(const xmlNode* node, const std::string& kind) {
  std::set<std::string> found;
  const std::regex pattern("\\$\\(" + kind + "\\.([A-Za-z0-9_]+)\\)");
  for (const xmlAttr* a = node->properties; a != nullptr; a = a->next) {
    const std::string value = textOf(reinterpret_cast<const xmlNode*>(a));
    for (std::sregex_iterator m(value.begin(), value.end(), pattern), end; m != end; ++m) found.insert((*m)[1]);
  }
  for (const xmlNode* c : children(node)) found.merge(references(c, kind));
  return found;
}

// "missing a, b; extra c": what `found` lacks of `expected` and holds beyond it.
std::string differences(const std::set<std::string>& found, const std::set<std::string>& expected) {
  std::string missing, extra;
  for (const std::string& id : expected) {
    if (found.count(id) == 0) missing += " " + id;
  }
  for (const std::string& id : found) {
    if (expected.count(id) == 0) extra += " " + id;
  }
  return "missing" + (missing.empty() ? std::string(" nothing") : missing) + "; extra" +
         (extra.empty() ? std::string(" nothing") : extra);
}

// The id in a policy's presentation="$(presentation.ID)"; nothing for a policy without one.
std::optional<std::string> presentationId(const xmlNode* policy) {
  const std::optional<std::string> reference = attribute(policy, "presentation");
  const std::string prefix = "$(presentation.";
  if (!reference || reference->size() <= prefix.size()) return std::nullopt;
  return reference->substr(prefix.size(), reference->size() - prefix.size() - 1);
}

struct Resources {
  std::map<std::string, std::string> strings;
  std::map<std::string, const xmlNode*> presentations;
};

Resources resourcesOf(const xmlDoc* adml) {
  Resources r;
  const xmlNode* resources = child(xmlDocGetRootElement(adml), "resources");
  for (const xmlNode* s : children(child(resources, "stringTable"), "string")) {
    r.strings[*attribute(s, "id")] = textOf(s);
  }
  for (const xmlNode* p : children(child(resources, "presentationTable"), "presentation")) {
    r.presentations[*attribute(p, "id")] = p;
  }
  return r;
}

std::vector<xmlNode*> policies(const xmlDoc* admx) {
  return children(child(xmlDocGetRootElement(admx), "policies"), "policy");
}

TEST(PolicyTemplatesTest, EachFileIsWellFormedAndValidAgainstTheSchemaOfTheFormatsSubset) {
  xmlSchemaParserCtxtPtr parser = xmlSchemaNewParserCtxt((kSource + "/tests/policy/PolicyDefinitions.xsd").c_str());
  std::unique_ptr<xmlSchema, decltype(&xmlSchemaFree)> schema(xmlSchemaParse(parser), xmlSchemaFree);
  xmlSchemaFreeParserCtxt(parser);
  ASSERT_TRUE(schema) << "the schema does not compile";

  std::vector<std::string> files{kAdmx};
  for (const auto& [culture, path] : kAdml) files.push_back(path);
  for (const std::string& path : files) {
    const Document document = load(path);
    if (!document) continue;
    std::string errors;
    xmlSchemaValidCtxtPtr validation = xmlSchemaNewValidCtxt(schema.get());
    xmlSchemaSetValidStructuredErrors(validation, collect, &errors);
    const int invalid = xmlSchemaValidateDoc(validation, document.get());
    xmlSchemaFreeValidCtxt(validation);
    EXPECT_EQ(invalid, 0) << path << ": " << errors;
  }

  // A broken file is reported, not taken for an empty one.
  const std::string broken = ::testing::TempDir() + "broken.admx";
  std::ofstream(broken) << "<policyDefinitions><policies></policyDefinitions>";
  std::string errors;
  EXPECT_FALSE(load(broken, errors));
  EXPECT_NE(errors, "");
}

TEST(PolicyTemplatesTest, EveryReferenceResolvesInBothLanguagesWhichCarryTheSameIds) {
  const Document admx = load(kAdmx);
  ASSERT_TRUE(admx);
  const std::set<std::string> strings = references(xmlDocGetRootElement(admx.get()), "string");
  const std::set<std::string> presentations = references(xmlDocGetRootElement(admx.get()), "presentation");
  ASSERT_GT(strings.size(), 30u);

  std::map<std::string, Resources> languages;
  for (const auto& [culture, path] : kAdml) {
    const Document adml = load(path);
    ASSERT_TRUE(adml);
    Resources r = resourcesOf(adml.get());
    std::set<std::string> stringIds, presentationIds;
    for (const auto& [id, text] : r.strings) stringIds.insert(id);
    for (const auto& [id, node] : r.presentations) presentationIds.insert(id);
    // Missing ones make the editor refuse the file; unused ones are texts nobody checks.
    EXPECT_TRUE(stringIds == strings) << culture << " strings: " << differences(stringIds, strings);
    EXPECT_TRUE(presentationIds == presentations)
        << culture << " presentations: " << differences(presentationIds, presentations);

    // A presentation shows the elements of the policy that names it, each once.
    for (const xmlNode* policy : policies(admx.get())) {
      const std::optional<std::string> presentation = presentationId(policy);
      std::set<std::string> elementIds, refIds;
      for (const xmlNode* element : children(child(policy, "elements"))) elementIds.insert(*attribute(element, "id"));
      if (!presentation) {
        EXPECT_TRUE(elementIds.empty()) << *attribute(policy, "name") << " has elements but nothing shows them";
        continue;
      }
      const std::string& id = *presentation;
      if (r.presentations.count(id) == 0) continue;
      for (const xmlNode* control : children(r.presentations[id])) refIds.insert(*attribute(control, "refId"));
      EXPECT_TRUE(refIds == elementIds)
          << culture << ", presentation " << id << ": " << differences(refIds, elementIds);
    }
    languages[culture] = std::move(r);
  }
  // The German file is a translation, not a copy of the English one.
  for (const auto& [id, english] : languages["en-US"].strings) {
    if (id.size() > 5 && id.compare(id.size() - 5, 5, "_Help") == 0) {
      EXPECT_NE(languages["de-DE"].strings[id], english) << id;
    }
  }
}

TEST(PolicyTemplatesTest, EveryPolicyWritesTheValueTheProviderReadsWithItsTypeRangeAndDefault) {
  const Document admx = load(kAdmx);
  const Document english = load(kAdml.at("en-US"));
  ASSERT_TRUE(admx && english);
  const Resources shown = resourcesOf(english.get());
  std::map<std::string, int> policiesOf;

  for (const xmlNode* policy : policies(admx.get())) {
    const std::string name = *attribute(policy, "name");
    const xmlNode* elements = child(policy, "elements");
    const std::vector<xmlNode*> parts = children(elements);
    ASSERT_LE(parts.size(), 1u) << name;
    const xmlNode* element = parts.empty() ? nullptr : parts.front();
    const std::optional<std::string> valueName = attribute(element != nullptr ? element : policy, "valueName");
    ASSERT_TRUE(valueName) << name << " writes no value";
    const Setting* s = catalogueEntry(*valueName);
    ASSERT_NE(s, nullptr) << name << " writes " << *valueName << ", which the provider does not read";
    ++policiesOf[*valueName];
    EXPECT_EQ(*attribute(policy, "key"), narrow(keyPath(s->key))) << name;
    EXPECT_EQ(*attribute(policy, "class"), "Machine") << name;
    EXPECT_TRUE(s->inPolicy) << name;

    // The registry type follows from the construct that writes the value.
    std::string type;
    const std::string kind = element != nullptr ? reinterpret_cast<const char*>(element->name) : "switch";
    const xmlNode* control = nullptr;
    if (const std::optional<std::string> id = presentationId(policy)) {
      control = children(shown.presentations.at(*id)).front();
    }
    if (kind == "switch") {
      type = child(child(policy, "enabledValue"), "decimal") != nullptr ? "REG_DWORD" : "REG_SZ";
      EXPECT_EQ(s->form, SettingForm::kSwitch) << name;
      EXPECT_EQ(attribute(child(child(policy, "enabledValue"), "decimal"), "value"), "1") << name;
      EXPECT_EQ(attribute(child(child(policy, "disabledValue"), "decimal"), "value"), "0") << name;
    } else if (kind == "text") {
      type = "REG_SZ";
      EXPECT_FALSE(attribute(element, "expandable")) << name;
      const xmlNode* shownDefault = child(control, "defaultValue");
      EXPECT_EQ(shownDefault != nullptr ? textOf(shownDefault) : "", narrow(s->textDefault)) << name;
    } else if (kind == "decimal") {
      type = attribute(element, "storeAsText") == std::optional<std::string>("true") ? "REG_SZ" : "REG_DWORD";
      EXPECT_EQ(attribute(element, "minValue"), std::to_string(s->minimum)) << name;
      EXPECT_EQ(attribute(element, "maxValue"), std::to_string(s->maximum)) << name;
      EXPECT_LE(s->minimum, s->numberDefault) << name;
      EXPECT_LE(s->numberDefault, s->maximum) << name;
      EXPECT_EQ(attribute(control, "defaultValue"), std::to_string(s->numberDefault)) << name;
    } else if (kind == "multiText") {
      type = "REG_MULTI_SZ";
    } else if (kind == "enum") {
      const std::vector<xmlNode*> items = children(element, "item");
      ASSERT_EQ(items.size(), s->choiceCount) << name;
      std::set<std::string> valueKinds;
      for (std::size_t i = 0; i < items.size(); ++i) {
        const xmlNode* value = children(child(items[i], "value")).front();
        const std::string valueKind = reinterpret_cast<const char*>(value->name);
        valueKinds.insert(valueKind);
        const SettingChoice& choice = s->choices[i];
        if (valueKind == "decimal") {
          EXPECT_EQ(attribute(value, "value"), std::to_string(choice.number)) << name << " item " << i;
        } else {
          ASSERT_NE(choice.string, nullptr) << name << " item " << i;
          EXPECT_EQ(textOf(value), narrow(choice.string)) << name << " item " << i;
        }
      }
      ASSERT_EQ(valueKinds.size(), 1u) << name << " mixes numbers and strings";
      type = *valueKinds.begin() == "decimal" ? "REG_DWORD" : "REG_SZ";
      const std::size_t shownDefault = std::stoul(attribute(control, "defaultItem").value_or("0"));
      ASSERT_LT(shownDefault, s->choiceCount) << name;
      const SettingChoice& choice = s->choices[shownDefault];
      EXPECT_TRUE(choice.string != nullptr ? narrow(choice.string) == narrow(s->textDefault)
                                           : choice.number == s->numberDefault)
          << name << " preselects another item than the provider's default";
    } else {
      ADD_FAILURE() << name << ": unknown element " << kind;
    }
    EXPECT_EQ(type, registryType(s->type)) << name;
  }

  for (const Setting* s = settingsBegin(); s != settingsEnd(); ++s) {
    EXPECT_EQ(policiesOf[narrow(s->name)], s->inPolicy ? 1 : 0) << narrow(s->name);
  }
  EXPECT_FALSE(setting(SettingId::kLdapAuthPw).inPolicy) << "a Group Policy object is readable by every domain user";
}

// docs/settings.md is written by hand for administrators; it must name every value of the
// catalogue under its key, with the registry type and default the provider uses.
TEST(PolicyTemplatesTest, TheAdministratorsGuideListsEveryValueUnderItsKeyWithTypeAndDefault) {
  std::ifstream guide(kSource + "/docs/settings.md");
  ASSERT_TRUE(guide);
  struct Row {
    std::string key, type, byDefault;
  };
  std::map<std::string, Row> rows;
  std::string line, key;
  const std::regex heading("^## `(.*)`$");
  const std::regex row("^\\| `([^`]+)` \\| ([A-Z_]+) \\| ([^|]*) \\|");
  while (std::getline(guide, line)) {
    std::smatch m;
    if (std::regex_match(line, m, heading)) key = m[1];
    if (line.rfind("## ", 0) == 0 && !std::regex_match(line, heading)) key.clear();
    if (!key.empty() && std::regex_search(line, m, row)) rows[m[1]] = {key, m[2], m[3]};
  }

  for (const Setting* s = settingsBegin(); s != settingsEnd(); ++s) {
    const std::string name = narrow(s->name);
    if (rows.count(name) == 0) {
      ADD_FAILURE() << name << " is missing from docs/settings.md";
      continue;
    }
    const Row& r = rows[name];
    EXPECT_EQ(r.key, narrow(keyPath(s->key))) << name;
    EXPECT_EQ(r.type, registryType(s->type)) << name;
    if (s->type == SettingType::kNumber) {
      EXPECT_EQ(r.byDefault.rfind(std::to_string(s->numberDefault), 0), 0u) << name << ": " << r.byDefault;
    } else if (*s->textDefault != L'\0') {
      EXPECT_EQ(r.byDefault, "`" + narrow(s->textDefault) + "`") << name;
    } else {
      EXPECT_EQ(r.byDefault.rfind("empty", 0), 0u) << name << ": " << r.byDefault;
    }
    rows.erase(name);
  }
  for (const auto& [name, r] : rows) {
    ADD_FAILURE() << "docs/settings.md lists " << name << ", which the provider does not read";
  }
}

}  // namespace
}  // namespace lm2::settings
