#pragma once

#include "Tests/Reference/EventLog.h"

namespace Tests {

/// Purpose: what the events of a story have written into the world so far: what the next ones can be about. Nothing here
/// comes from the plug-in.
struct Written {
   struct Entry {
      std::set< Reference::Group > groups;
      std::optional< Reference::Profile > selected;
   };
   struct Profile {
      double thresholdKbps = 0;
      std::uint32_t loadInterval = 0;
      bool shutdown = false;
      double maxDelay = 0;
   };
   struct Unit {
      int state = 0;
      int generation = 0;
      int enter = Reference::none;
      int exit = Reference::none;
   };

   void apply( const Reference::Event & event );

   bool linkUp( Reference::Intf intf ) const;
   /// The profile that is selected by name or as the default; none if nothing is or there is no such profile.
   Reference::Profile resolved( Reference::Intf intf ) const;
   /// Whether every interface that a unit may begin to monitor has a profile. Where one has not, nothing may start.
   bool resolvable() const;
   /// Interfaces of the unit's groups.
   std::set< Reference::Intf > members( Reference::Unit unit ) const;
   int state( Reference::Unit unit ) const; ///< none without a status

   std::map< Reference::Intf, bool > links;
   std::set< Reference::Intf > counters;
   std::map< Reference::Intf, Reference::Intf > lag;
   std::map< int, std::set< Reference::Intf > > vlans;
   std::map< Reference::Intf, Entry > entries;
   std::map< Reference::Group, std::set< Reference::Intf > > groups;
   std::set< std::pair< Reference::Group, Reference::Unit > > mappings;
   std::map< Reference::Profile, Profile > profiles;
   Reference::Profile defaultName = Reference::none;
   std::map< Reference::Unit, Unit > units;
   std::set< Reference::Completion > progress;
   bool running = false;

 private:
   void applyLink( const Reference::Event & event );
   void applyGroup( const Reference::Event & event );
   void applyProfile( const Reference::Event & event );
   void applyUnit( const Reference::Event & event );
};

} // namespace Tests
