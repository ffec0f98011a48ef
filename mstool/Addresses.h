// Address lists of header fields.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Mail.h"

namespace tool {

// The addresses of one header field in their order, groups flattened. A field that holds text but
// no address that can be told apart gives that text as the only address.
std::vector<MailAddress> ReadAddresses(std::string_view raw, const std::string& textCharset);

}  // namespace tool
