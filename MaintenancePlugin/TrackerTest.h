#pragma once

#include "MaintenancePlugin/PluginRig.h"
#include "MaintenancePlugin/Recorded.h"
#include "Platform/Vel/FailedAssertion.h"

#include <gtest/gtest.h>

/// Purpose: what the tests of membership tracking and of its backlog share.
namespace MaintenanceMode {

struct TrackerTest : testing::Test {
   using IntfId = Wire::IntfId;

   PluginRig rig;
   const IntfId et1 = PluginRig::port( "et1" );
   const IntfId et2 = PluginRig::port( "et2" );
   const IntfId et3 = PluginRig::port( "et3" );

   IntfStatusSm & tracker() { return *rig.root->intfStatusSm(); }
   /// What the tracker tells of its decisions; with what it tells of details as well.
   struct Decisions : Sequence {
      Decisions() : Sequence( "IntfStatusSm", 4 ) {}
   };
   struct Details : Sequence {
      Details() : Sequence( "IntfStatusSm" ) {}
   };
   /// The interfaces that were processed, in that order: "et1 et2".
   static Vel::String processed( const Lines & lines ) {
      const Vel::String head = "processBacklog: intf ";
      Vel::String names;
      for ( const auto & line : lines )
         if ( line.starts_with( head ) )
            names += ( names.empty() ? "" : " " ) + line.substr( head.size() );
      return names;
   }
   /// Works the backlog off and tells what was in it.
   Vel::String backlog() {
      Decisions decisions;
      rig.settle();
      return processed( decisions.lines() );
   }
   /// The unit's set of interfaces to be monitored, without a monitor that follows it.
   UnitIntfInput & input( const Vel::String & unitName ) {
      return *rig.root->unitMonIntfInput()->unitIntfInputIs( unitName );
   }
};

} // namespace MaintenanceMode
