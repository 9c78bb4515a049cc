#pragma once

#include "Config/Command.h"
#include "Config/Duration.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// When a hook is called.
enum class Moment {
   enter,     ///< a unit begins to go into maintenance
   drained,   ///< an interface has drained of its own accord
   shut,      ///< an interface is shut, drained or because its time is over
   spike,     ///< an interface that had drained carries traffic again
   completed, ///< a unit is under maintenance
   exit,      ///< a unit begins to go back
   normal,    ///< a unit is back in service
   overrun    ///< a unit has not come into maintenance by its deadline
};
/// As in the file.
const char * text( Moment moment );
/// All, in the order of Moment.
std::vector< Moment > allMoments();

/// Something outside that is told of moments: a program or an HTTP server. The key in Configuration::hooks is its name.
struct Hook {
   static constexpr Duration defaultTimeLimit = Duration::fromSeconds( 10 );
   static constexpr Duration mostTimeLimit = Duration::fromSeconds( 3600 );

   std::set< Moment > at;         ///< at least one
   std::set< std::string > units; ///< only moments of these; empty: of all units
   Command command;               ///< empty: it is a URL
   std::string url;               ///< that parseUrl() takes; empty: it is a command
   Duration timeLimit = defaultTimeLimit;

   friend bool operator==( const Hook &, const Hook & ) = default;
};

/// So many at most: each may have a process of its own at any time.
inline constexpr std::size_t mostHooks = 32;

/// Takes text for a URL that something can be posted to: `http://` or `https://`, a host as in an address to listen on,
/// perhaps a port, a path and a query. It may hold a name and a password.
Parsed< std::string > parseUrl( std::string_view text );

} // namespace Config
