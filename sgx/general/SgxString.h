// SgxString: the string type of every interface of the library.
//
// An alias of std::string, so ordering is byte-wise and case-sensitive and hosts pass their own
// strings without conversion.
#pragma once

#include <string>

using SgxString = std::string;
