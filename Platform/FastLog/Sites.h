#pragma once

#include "Platform/FastLog/FastLog.h"
#include "Platform/FastLog/Line.h"

#include <vector>

/// Purpose: call sites as data, free of the code they stand in: what the site table holds, and how a line's arguments
/// become text with it.
namespace FastLog {

struct SiteInfo {
   struct Piece {
      Type type;
      std::string literal; ///< if it is one
   };
   Kind kind = Kind::event;
   unsigned line = 0;
   std::string file; ///< from the root of the tree, if it is of this tree
   std::string function;
   std::vector< Piece > pieces;
};

/// `types` are those of the arguments that are no literals.
SiteInfo siteInfo( const Site & site, std::initializer_list< Type > types );

/// The entry of the site table, its head included, padded to a multiple of 8. Equal for equal sites.
std::string encoded( const SiteInfo & info );

/// Takes the entry at the front of `table` away and decodes it. False, and `why` says why, if it is damaged;
/// nothing is taken then.
bool decode( std::string_view & table, SiteInfo & info, std::string & why );

/// Sets `text` from a line's arguments. False if they are not what the site says.
bool formatText( const SiteInfo & info, std::string_view payload, std::string & text );

/// The arguments of a line whose call site is not in the table, finished.
std::string encodedFull( const SiteInfo & info, std::string_view text );
/// The other way. False if they are damaged.
bool decodeFull( std::string_view payload, Line & line );

/// Adds up bytes so that damage shows (FNV-1a).
std::uint32_t checksum( std::string_view bytes );

} // namespace FastLog
