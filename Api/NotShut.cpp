#include "Api/NotShut.h"

#include <algorithm>

namespace Api {

std::string notShutText( const std::vector< NotShut > & list ) {
   constexpr std::size_t mostNamed = 3;
   if ( list.empty() )
      return "";
   const std::string & problem = list.front().problem;
   const bool alike = std::all_of(
      list.begin(), list.end(), [&]( const NotShut & each ) { return each.problem == problem; } );
   const std::size_t named = std::min( mostNamed, list.size() );
   std::string text;
   for ( std::size_t i = 0; i < named; ++i )
      text += ( i == 0                 ? ""
                : i + 1 == list.size() ? " and "
                                       : ", " ) +
              list[i].interface + ( alike ? "" : " (" + list[i].problem + ")" );
   if ( list.size() > named )
      text += " and " + std::to_string( list.size() - named ) + " more";
   return text + " could not be shut" + ( alike ? ": " + problem : "" );
}

} // namespace Api
