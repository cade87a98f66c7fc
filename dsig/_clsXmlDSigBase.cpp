// Construction and destruction of the verifier's document-family state.
#include "dsig/_clsXmlDSigBase.h"

// Every field has its default in the class definition: no family, no DTE, no digest.
_clsXmlDSigBase::_clsXmlDSigBase() = default;

_clsXmlDSigBase::~_clsXmlDSigBase() = default;
