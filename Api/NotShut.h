#pragma once

#include <string>
#include <vector>

/// Purpose: names links that are to be held down and could not be shut: whoever is told that they are, pulls their cables.
/// Used by the agent and by those who ask it, so that both say it in the same words.
namespace Api {

struct NotShut {
   std::string interface;
   std::string problem; ///< "Operation not permitted"
};

/// "et1 and et2 could not be shut: Operation not permitted"; empty: there are none. Of many the first few are named.
std::string notShutText( const std::vector< NotShut > & list );

} // namespace Api
