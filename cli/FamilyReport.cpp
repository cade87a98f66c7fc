#include "cli/FamilyReport.h"

#include "cli/UncommonOptions.h"
#include "dsig/ClsXmlDSig.h"

namespace cli {

namespace {

// Families recognised here only by text.
constexpr const char* kEbicsUrn = "urn:org:ebics:";
constexpr const char* kEbicsNamespaceHost = "www.ebics.org";
constexpr const char* kEbXmlMsgNamespace = "ebxml-msg";
constexpr const char* kSwiftSaaNamespace = "urn:swift:saa:xsd:saa.2.0";
// Saudi ZATCA and Malaysian MyInvois invoices are both UBL with an enveloped XAdES
// signature; ZATCA's carry the reporting profile, MyInvois' identify parties by TIN.
constexpr const char* kUblXadesExtension = "urn:oasis:names:specification:ubl:dsig:enveloped:xades";
constexpr const char* kZatcaProfile = "reporting:1.0";
constexpr const char* kMyInvoisTinScheme = "schemeID=\"TIN\"";

}  // namespace

FamilyReport describeFamily(const ClsXmlDSig& d) {
  FamilyReport r;
  const StringBuffer& text = d.m_xmlSb;
  const bool ublXades = text.containsSubstring(kUblXadesExtension);
  // Given options make the verifier apply these rules to any document; the family named
  // here comes from the text alone, so that a mismatch can be told.
  const bool zatcaOption = d.m_log.hasUncommonOption("ZATCA", true);
  const bool myInvoisOption = d.m_log.hasUncommonOption("MYINVOIS", true);

  // The verifier's own flags first, in the order of its detection rules.
  if (*d.family().detectedName()) r.family = d.family().detectedName();
  else if (ublXades && text.containsSubstring(kZatcaProfile)) r.family = "zatca";
  else if (ublXades && text.containsSubstring(kMyInvoisTinScheme)) r.family = "myinvois";
  else if (text.containsSubstring(kEbicsUrn) || text.containsSubstring(kEbicsNamespaceHost)) r.family = "ebics";
  else if (text.containsSubstring(kEbXmlMsgNamespace)) r.family = "ebxml";
  else if (text.containsSubstring(kSwiftSaaNamespace)) r.family = "swift-saa";
  else r.family = "generic";

  // These two are verified by their own rules only when the caller asks for them.
  if (r.family == "zatca" && !zatcaOption) r.suggestedOptions.push_back("ZATCA");
  if (r.family == "myinvois" && !myInvoisOption) r.suggestedOptions.push_back("MYINVOIS");
  return r;
}

std::vector<std::string> familyOptionWarnings(const FamilyReport& report, const std::vector<std::string>& keywords) {
  std::vector<std::string> warnings;
  for (const std::string& keyword : keywords) {
    const UncommonOption* option = findUncommonOption(keyword);
    if (!option || !*option->family || report.family == option->family) continue;
    warnings.push_back("--option " + std::string(option->keyword) + " is meant for " + option->familyName +
                       ", but this document is recognised as " + report.family +
                       "; its rules can make a valid signature fail");
  }
  return warnings;
}

}  // namespace cli
