#include "PolicyTemplateWriter.h"

#include <stdexcept>
#include <string>

#include "settings/SettingsCatalogue.h"

namespace lm2::policy {
namespace {

using settings::Setting;
using settings::SettingArea;
using settings::SettingForm;
using settings::SettingText;

constexpr char kHeader[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
    "<!-- Generated from the provider's settings catalogue by lm2_policy_templates: do not edit. -->\n";
constexpr char kNamespaces[] =
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "revision=\"1.0\" schemaVersion=\"1.0\" "
    "xmlns=\"http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions\"";
constexpr char kRootCategory[] = "LM2CredentialProvider";
constexpr char kSupportedOn[] = "SUPPORTED_Windows7";

struct Area {
  SettingArea area;
  const char* name;
  SettingText title;
};

constexpr Area kAreas[] = {
    {SettingArea::kLogon, "Logon", {"Logon", "Anmeldung"}},
    {SettingArea::kTokenInitialization,
     "TokenInitialization",
     {"Token initialisation and first credential", "Token-Initialisierung und erste Anmeldedaten"}},
    {SettingArea::kFilter, "Filter", {"Other credential providers", "Andere Anmeldeinformationsanbieter"}},
    {SettingArea::kChangePassword, "ChangePassword", {"Password change", "Kennwortänderung"}},
    {SettingArea::kTrace, "Trace", {"Trace", "Ablaufverfolgung"}},
    {SettingArea::kKaldera, "Kaldera", {"Access card (Kaldera)", "Zutrittskarte (Kaldera)"}},
};

const char* in(Language language, const SettingText& text) {
  return language == Language::kGerman ? text.german : text.english;
}

// Catalogue names and keys are ASCII; anything else would be a typing error in the catalogue.
std::string narrow(const wchar_t* text) {
  std::string out;
  for (; *text != L'\0'; ++text) {
    if (*text < 0x20 || *text > 0x7e) throw std::invalid_argument("a catalogue name is not printable ASCII");
    out.push_back(static_cast<char>(*text));
  }
  return out;
}

std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out.push_back(c);
    }
  }
  return out;
}

const char* areaName(SettingArea area) {
  for (const Area& a : kAreas) {
    if (a.area == area) return a.name;
  }
  throw std::invalid_argument("a setting's area has no category");
}

std::string choiceId(const Setting& s, const settings::SettingChoice& choice) {
  return narrow(s.name) + "_" + (choice.string != nullptr ? narrow(choice.string) : std::to_string(choice.number));
}

bool isDefault(const Setting& s, const settings::SettingChoice& choice) {
  if (choice.string == nullptr) return choice.number == s.numberDefault;
  return std::wstring(choice.string) == s.textDefault;
}

std::string elementOf(const Setting& s) {
  const std::string name = narrow(s.name);
  const std::string common = "id=\"" + name + "\" valueName=\"" + name + "\" required=\"true\"";
  switch (s.form) {
    case SettingForm::kText: return "        <text " + common + " maxLength=\"1023\"/>\n";
    case SettingForm::kNumber:
      return "        <decimal " + common + " minValue=\"" + std::to_string(s.minimum) + "\" maxValue=\"" +
             std::to_string(s.maximum) + "\"/>\n";
    case SettingForm::kList: return "        <multiText " + common + "/>\n";
    case SettingForm::kChoice: {
      std::string out = "        <enum " + common + ">\n";
      for (std::size_t i = 0; i < s.choiceCount; ++i) {
        const settings::SettingChoice& c = s.choices[i];
        const std::string value = c.string != nullptr ? "<string>" + escaped(narrow(c.string)) + "</string>"
                                                      : "<decimal value=\"" + std::to_string(c.number) + "\"/>";
        out += "          <item displayName=\"$(string." + choiceId(s, c) + ")\"><value>" + value + "</value></item>\n";
      }
      return out + "        </enum>\n";
    }
    case SettingForm::kSwitch: break;
  }
  throw std::invalid_argument("a switch has no element");
}

std::string policyOf(const Setting& s) {
  const std::string name = narrow(s.name);
  std::string out = "    <policy name=\"" + name + "\" class=\"Machine\" displayName=\"$(string." + name +
                    ")\" explainText=\"$(string." + name + "_Help)\"";
  if (s.form != SettingForm::kSwitch) out += " presentation=\"$(presentation." + name + ")\"";
  out += " key=\"" + escaped(narrow(settings::keyPath(s.key))) + "\"";
  if (s.form == SettingForm::kSwitch) out += " valueName=\"" + name + "\"";
  out += ">\n      <parentCategory ref=\"" + std::string(areaName(s.area)) + "\"/>\n";
  out += "      <supportedOn ref=\"" + std::string(kSupportedOn) + "\"/>\n";
  if (s.form == SettingForm::kSwitch) {
    out += "      <enabledValue><decimal value=\"1\"/></enabledValue>\n";
    out += "      <disabledValue><decimal value=\"0\"/></disabledValue>\n";
  } else {
    out += "      <elements>\n" + elementOf(s) + "      </elements>\n";
  }
  return out + "    </policy>\n";
}

const char* registryType(const Setting& s) {
  switch (s.type) {
    case settings::SettingType::kString: return "REG_SZ";
    case settings::SettingType::kNumber: return "REG_DWORD";
    case settings::SettingType::kStringList: return "REG_MULTI_SZ";
  }
  return "";
}

// The last paragraph of each explanation: what "not configured" means, and which value the
// policy writes, for whoever compares a computer's registry with the policy.
std::string defaultParagraph(const Setting& s, Language language) {
  const bool german = language == Language::kGerman;
  std::string out;
  if (s.form == SettingForm::kSwitch) {
    const bool on = s.numberDefault != 0;
    out = german ? std::string("Nicht konfiguriert: wie ") + (on ? "aktiviert." : "deaktiviert.")
                 : std::string("Not configured: as if ") + (on ? "enabled." : "disabled.");
  } else {
    std::string value;
    if (s.defaultNote.english != nullptr) {
      value = in(language, s.defaultNote);
    } else if (s.form == SettingForm::kChoice) {
      for (std::size_t i = 0; i < s.choiceCount; ++i) {
        if (isDefault(s, s.choices[i])) value = in(language, s.choices[i].label);
      }
    } else if (s.form == SettingForm::kNumber) {
      value = std::to_string(s.numberDefault);
    } else if (s.form == SettingForm::kList || *s.textDefault == L'\0') {
      value = german ? "leer" : "empty";
    } else {
      value = narrow(s.textDefault);
    }
    out = (german ? "Nicht konfiguriert oder deaktiviert: " : "Not configured or disabled: ") + value + ".";
  }
  out += german ? "\n\nWert: HKLM\\" : "\n\nValue: HKLM\\";
  return out + narrow(settings::keyPath(s.key)) + "\\" + narrow(s.name) + " (" + registryType(s) + ")";
}

std::string stringEntry(const std::string& id, const std::string& text) {
  return "      <string id=\"" + id + "\">" + escaped(text) + "</string>\n";
}

std::string presentationOf(const Setting& s, Language language) {
  const std::string name = narrow(s.name);
  const std::string label = escaped(std::string(in(language, s.title)) + ":");
  std::string out = "      <presentation id=\"" + name + "\">\n        ";
  switch (s.form) {
    case SettingForm::kText:
      out += "<textBox refId=\"" + name + "\"><label>" + label + "</label>";
      if (*s.textDefault != L'\0') out += "<defaultValue>" + escaped(narrow(s.textDefault)) + "</defaultValue>";
      out += "</textBox>";
      break;
    case SettingForm::kNumber:
      out += "<decimalTextBox refId=\"" + name + "\" defaultValue=\"" + std::to_string(s.numberDefault) + "\">" +
             label + "</decimalTextBox>";
      break;
    case SettingForm::kList: out += "<multiTextBox refId=\"" + name + "\">" + label + "</multiTextBox>"; break;
    case SettingForm::kChoice: {
      std::size_t defaultItem = 0;
      for (std::size_t i = 0; i < s.choiceCount; ++i) {
        if (isDefault(s, s.choices[i])) defaultItem = i;
      }
      out += "<dropdownList refId=\"" + name + "\" defaultItem=\"" + std::to_string(defaultItem) +
             "\" noSort=\"true\">" + label + "</dropdownList>";
      break;
    }
    case SettingForm::kSwitch: throw std::invalid_argument("a switch has no presentation");
  }
  return out + "\n      </presentation>\n";
}

}  // namespace

const char* PolicyTemplateWriter::cultureName(Language language) noexcept {
  return language == Language::kGerman ? "de-DE" : "en-US";
}

std::string PolicyTemplateWriter::admx() {
  std::string out = kHeader;
  out += "<policyDefinitions " + std::string(kNamespaces) + ">\n";
  out += "  <policyNamespaces>\n"
         "    <target prefix=\"lm2\" namespace=\"Corvana.Policies.LM2CredentialProvider\"/>\n"
         "  </policyNamespaces>\n"
         "  <resources minRequiredRevision=\"1.0\"/>\n"
         "  <supportedOn>\n    <definitions>\n";
  out += "      <definition name=\"" + std::string(kSupportedOn) + "\" displayName=\"$(string." + kSupportedOn +
         ")\"/>\n    </definitions>\n  </supportedOn>\n  <categories>\n";
  out += "    <category name=\"" + std::string(kRootCategory) + "\" displayName=\"$(string." + kRootCategory +
         ")\"/>\n";
  for (const Area& a : kAreas) {
    out += "    <category name=\"" + std::string(a.name) + "\" displayName=\"$(string.Category_" + a.name +
           ")\">\n      <parentCategory ref=\"" + kRootCategory + "\"/>\n    </category>\n";
  }
  out += "  </categories>\n  <policies>\n";
  for (const Setting* s = settings::settingsBegin(); s != settings::settingsEnd(); ++s) {
    if (s->inPolicy) out += policyOf(*s);
  }
  return out + "  </policies>\n</policyDefinitions>\n";
}

std::string PolicyTemplateWriter::adml(Language language) {
  const bool german = language == Language::kGerman;
  std::string out = kHeader;
  out += "<policyDefinitionResources " + std::string(kNamespaces) + ">\n";
  out += "  <displayName>LM2 Credential Provider</displayName>\n";
  out += german ? "  <description>Einstellungen der Token-Anmeldung mit dem LM2 Credential Provider</description>\n"
                : "  <description>Settings of token logon with the LM2 Credential Provider</description>\n";
  out += "  <resources>\n    <stringTable>\n";
  out += stringEntry(kRootCategory, "LM2 Credential Provider");
  out += stringEntry(kSupportedOn, german ? "Mindestens Windows 7" : "At least Windows 7");
  for (const Area& a : kAreas) out += stringEntry(std::string("Category_") + a.name, in(language, a.title));
  std::string presentations;
  for (const Setting* s = settings::settingsBegin(); s != settings::settingsEnd(); ++s) {
    if (!s->inPolicy) continue;
    const std::string name = narrow(s->name);
    out += stringEntry(name, in(language, s->title));
    out += stringEntry(name + "_Help", std::string(in(language, s->explanation)) + "\n\n" +
                                           defaultParagraph(*s, language));
    for (std::size_t i = 0; i < s->choiceCount; ++i) {
      out += stringEntry(choiceId(*s, s->choices[i]), in(language, s->choices[i].label));
    }
    if (s->form != SettingForm::kSwitch) presentations += presentationOf(*s, language);
  }
  out += "    </stringTable>\n    <presentationTable>\n" + presentations + "    </presentationTable>\n";
  return out + "  </resources>\n</policyDefinitionResources>\n";
}

}  // namespace lm2::policy
