// Text markers that identify the document families the verifier treats specially.
// Each is a case-sensitive substring looked for in the whole document text. The
// government and health-service markers are host names of the services' public web
// domains, which their documents carry in namespace URIs and schema locations.
#pragma once

namespace dsig_family {

// Chile's tax service (SII): DTE documents use the namespace "http://www.sii.cl/SiiDte".
constexpr const char* kChileSiiDomain = "www.sii.cl";
// Peru's tax administration (SUNAT) UBL extensions.
constexpr const char* kSunatPeruUbl = "urn:sunat:names:specification:ubl:peru";

// Families whose signing software sorts attributes wrongly when canonicalizing,
// tested in this order.
constexpr const char* kPolandFinanceAppsDomain = "apps.mf.gov.pl";
constexpr const char* kPolandFinanceDomain = "mf.gov.pl";
constexpr const char* kPolandZusDomain = "zus.pl";
constexpr const char* kHl7Urn = "urn:hl7-org:";
constexpr const char* kItalyHealthRecordDomain = "fascicolosanitario.gov.it";
constexpr const char* kPolandCrdDomain = "crd.gov.pl";

// Poland's health-information centre (CSIOZ): same sorting bug, plus its own
// canonicalization adjustments.
constexpr const char* kPolandCsiozDomain = "csioz.gov.pl";

// Messages of the CMA straight-through-processing schema.
constexpr const char* kCmaStpUrn = "urn:cma:stp:xsd:stp";

// Mexico's tax administration (SAT), SIAT service, together with a "<doda>" element.
constexpr const char* kMexicoSatSiatDomain = "siat.sat.gob.mx";
constexpr const char* kDodaStartTag = "<doda>";

// "SK-XML" DigiDoc containers.
constexpr const char* kSkXmlSignedDocTag = "<SignedDoc ";
constexpr const char* kSkXmlFormat = "SK-XML";

// SWIFT Alliance Access messages; their LAU block is added after signing. Looked for in the
// transformed data of a reference, not in the document.
constexpr const char* kSwiftSaaNamespace = "urn:swift:saa:xsd:saa.2.0";

}  // namespace dsig_family
