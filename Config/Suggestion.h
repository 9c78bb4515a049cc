#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// The candidate that somebody probably meant who wrote text; empty if none is near. Near is a difference in upper and
/// lower case only, or single mistakes (a character wrong, missing, too much, or two swapped) up to a third of the
/// candidate's length and up to three. Another number is no mistake but another name: et1 is not near et2. The nearest
/// wins, the first of those.
std::string nearest( std::string_view text, const std::vector< std::string > & candidates );

/// `; did you mean "x"?`, or empty.
std::string didYouMean( std::string_view text, const std::vector< std::string > & candidates );

} // namespace Config
