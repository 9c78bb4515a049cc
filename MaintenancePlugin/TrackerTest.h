#pragma once

#include "MaintenancePlugin/PluginRig.h"
#include "Platform/FastLog/Capture.h"
#include "Platform/Vel/FailedAssertion.h"
#include "Platform/Vel/Trace.h"

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
   using Lines = std::vector< Vel::String >;
   /// Level of the traces that tell what was decided.
   static constexpr int decisions = 4;
   /// What the tracker traced and nobody else, in that order.
   static Lines told( const Vel::TraceCapture & traces ) {
      Lines lines;
      for ( const auto & line : traces.lines() )
         if ( line.facility == "IntfStatusSm" )
            lines.push_back( line.text );
      return lines;
   }
   /// What the tracker wrote into the fast log and nobody else, in that order.
   static Lines logged( const FastLog::Capture & log ) {
      Lines lines;
      for ( const auto & line : log.lines() )
         if ( line.file.find( "/IntfStatusSm" ) != Vel::String::npos )
            lines.push_back( line.text );
      return lines;
   }
   /// The interfaces that were processed, in that order: "et1 et2".
   static Vel::String processed( const Vel::TraceCapture & traces ) {
      const Vel::String head = "processBacklog: intf ";
      Vel::String names;
      for ( const auto & line : traces.lines() )
         if ( line.text.starts_with( head ) )
            names += ( names.empty() ? "" : " " ) + line.text.substr( head.size() );
      return names;
   }
   /// Works the backlog off and tells what was in it.
   Vel::String backlog() {
      const Vel::TraceCapture traces;
      rig.settle();
      return processed( traces );
   }
   /// The unit's set of interfaces to be monitored, without a monitor that follows it.
   UnitIntfInput & input( const Vel::String & unitName ) {
      return *rig.root->unitMonIntfInput()->unitIntfInputIs( unitName );
   }
};

} // namespace MaintenanceMode
