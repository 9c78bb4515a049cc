#pragma once

#include "Config/Duration.h"
#include "Config/Hooks.h"
#include "Config/Rate.h"
#include "Config/Simulated.h"
#include "Config/Stages.h"
#include "Config/VlanSet.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace Config {

/// How an interface is judged. The key in Configuration::profiles is its name.
struct Profile {
   Rate threshold;                             ///< above 0
   Duration loadInterval;                      ///< how long traffic must stay below the threshold
   bool shutdown = false;                      ///< shut the link once it has drained
   std::optional< Duration > shutdownMaxDelay; ///< shut it then in any case; 0: at once; nothing: never

   friend bool operator==( const Profile &, const Profile & ) = default;
};

/// Interfaces that are maintained together.
struct Group {
   std::set< std::string > interfaces;   ///< kernel names; none need exist
   VlanSet vlans;                        ///< the VLAN interfaces of these ids
   std::optional< std::string > profile; ///< nothing: the default profile, whichever that is

   friend bool operator==( const Group &, const Group & ) = default;
};

/// What an operator puts into maintenance.
struct Unit {
   std::set< std::string > groups;
   StageList enter = defaultStages(); ///< in effect: the unit's own list, or else that of the configuration
   StageList exit = defaultStages();

   friend bool operator==( const Unit &, const Unit & ) = default;
};

/// Units that stand in for each other.
struct RedundancyGroup {
   std::set< std::string > units;
   unsigned maxOut = 1; ///< so many may be out of service at a time, at least 1

   friend bool operator==( const RedundancyGroup &, const RedundancyGroup & ) = default;
};

/// Whether it can be the name of a host: labels of letters, digits and hyphens, and no address.
bool isHostName( const std::string & text );

/// A TCP address to listen on.
struct Endpoint {
   std::string host; ///< host name or address, an IPv6 address without brackets in its canonical form
   std::uint16_t port = 0;

   /// Reads `host:port` or `[v6]:port`; the host may not be left out, the port is 1 to 65535.
   static Parsed< Endpoint > parse( std::string_view text );
   std::string text() const;
   friend auto operator<=>( const Endpoint &, const Endpoint & ) = default;
};

/// \note not simply `linux`: compilers predefine that as a macro.
enum class SwitchKind { linuxKernel, simulated };
const char * text( SwitchKind kind ); ///< `linux` or `simulated`, as in the file

/// A complete, accepted configuration: plain values, compared by value, walked in name order.
///
/// Invariants of one that load() or parse() gave out:
/// 1. names are valid; every profile, group, unit and stage that is referred to exists
/// 2. there is at least one profile, and the default profile exists
/// 3. lists of stages are not empty and name no stage twice
/// 4. a hook has a moment, and either a command or a URL
/// 5. a unit that enters through drainwatch leaves through it: nothing else lets go of its links
struct Configuration {
   SwitchKind switchKind = SwitchKind::linuxKernel;
   std::optional< Endpoint > web;    ///< read-only web address; nothing: off
   std::set< std::string > webNames; ///< under which it is asked for, besides those of the machine
   Duration settle = Duration::fromSeconds( 10 );
   std::map< std::string, CommandStage > stages; ///< those that it defines itself
   StageList enter = defaultStages();            ///< of units that have no list of their own
   StageList exit = defaultStages();
   std::map< std::string, Profile > profiles;
   std::string defaultProfile;
   std::map< std::string, Group > groups;
   std::map< std::string, Unit > units;
   std::map< std::string, RedundancyGroup > redundancyGroups;
   Rate controlPlaneFloor = Rate::fromBps( 10'000 ); ///< what a port carries without any traffic to be moved
   std::map< std::string, Hook > hooks;
   Simulated simulated; ///< used if switchKind says so, checked in any case

   friend bool operator==( const Configuration &, const Configuration & ) = default;
};

} // namespace Config
