// service_security.h - who may do what with a service, as an INF writes it and as the registry holds it.
#pragma once

#include <optional>
#include <string>

namespace kestro::servicing {

// The value Security of a service for a text such as "D:P(A;;GA;;;SY)" (SDDL): a self-relative security
// descriptor in the form that Windows' service control manager keeps, of which the text gives the access
// list. Nothing for a text that is none, or names what an offline image does not tell, as accounts of a
// domain.
std::optional<std::string> ServiceSecurity(const std::string& sddl);

} // namespace kestro::servicing
