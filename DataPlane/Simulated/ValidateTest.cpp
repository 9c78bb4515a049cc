#include "DataPlane/Simulated/Factory.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

#include <cmath>

namespace DataPlane::Simulated {
namespace {

Vel::String error( const Description & description ) {
   const SimulatedSwitchMade made = switchNewSimulated( Vel::make< Cog::ManualClock >(), description );
   EXPECT_EQ( made.outcome.ok(), static_cast< bool >( made.made ) );
   EXPECT_EQ( made.outcome.ok(), made.simulation != nullptr );
   return made.outcome.text();
}

TEST( SimulatedDescription, emptySwitchIsASwitch ) { EXPECT_EQ( "", error( {} ) ); }

TEST( SimulatedDescription, bootIdIsTheOneThatIsGiven ) {
   Description description;
   description.bootId = "run 5";
   EXPECT_EQ( "run 5", switchNewSimulated( Vel::make< Cog::ManualClock >(), description ).made->bootId() );
}

TEST( SimulatedDescription, errorNamesWhatIsWrong ) {
   struct Row {
      const char * text;
      Description description;
   };
   const Vel::String longName( 28, 'x' );
   const Row rows[] = {
      { "\"\" is no name of 1 to 27 bytes", { { { "", {} } }, {}, {}, {} } },
      { "\"xxxxxxxxxxxxxxxxxxxxxxxxxxxx\" is no name of 1 to 27 bytes",
        { { { longName, {} } }, {}, {}, {} } },
      { "the name \"et1\" is used twice", { { { "et1", {} }, { "et1", {} } }, {}, {}, {} } },
      { "the name \"et1\" is used twice", { { { "et1", {} } }, { { "et1", {} } }, {}, {} } },
      { "a rate of \"et1\" is not from 0 to 10 Tbit/s",
        { { { "et1", { { false, 1, -1, 0 } } } }, {}, {}, {} } },
      { "a rate of \"et1\" is not from 0 to 10 Tbit/s",
        { { { "et1", { { false, 1, 0, std::nan( "" ) } } } }, {}, {}, {} } },
      { "a piece of traffic of \"et1\" is not from 0 s to ten days long",
        { { { "et1", { { true, 1e6, 0, 0 } } } }, {}, {}, {} } },
      { "\"et9\", a member of port-channel \"pc1\", is no port", { {}, { { "pc1", { "et9" } } }, {}, {} } },
      { "\"pc1\", a member of port-channel \"pc1\", is no port", { {}, { { "pc1", { "pc1" } } }, {}, {} } },
      { "\"et1\" is a member of two port-channels or twice of \"pc2\"",
        { { { "et1", {} } }, { { "pc1", { "et1" } }, { "pc2", { "et1" } } }, {}, {} } },
      { "VLAN 0 of \"v\" is not from 1 to 4094", { {}, {}, { { 0, "v", {} } }, {} } },
      { "VLAN 4095 of \"v\" is not from 1 to 4094", { {}, {}, { { 4095, "v", {} } }, {} } },
      { "VLAN 7 is described twice", { {}, {}, { { 7, "v", {} }, { 7, "w", {} } }, {} } },
      { "\"v\", a member of VLAN 8, is no port and no port-channel",
        { {}, {}, { { 7, "v", {} }, { 8, "w", { "v" } } }, {} } },
      { "\"et1\" is twice a member of VLAN 7",
        { { { "et1", {} } }, {}, { { 7, "v", { "et1", "et1" } } }, {} } } };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.text );
      EXPECT_EQ( Vel::text( "simulated switch: ", row.text ), error( row.description ) );
   }
}

} // namespace
} // namespace DataPlane::Simulated
