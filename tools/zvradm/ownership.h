// Who owns what the tool makes in an installation: the owner and the group of the base
// directory, so that root can help out in an installation of somebody else.
#pragma once

#include <string>

namespace zvradm {

// Gives an open file or folder of this process to owner and group of the base
// directory, and write access to the group if it may write the base directory.  What
// another user than root may not give away stays as it is; throws refusal when root fails.
void give_to_owner_of(const std::string& base, int descriptor);

}  // namespace zvradm
