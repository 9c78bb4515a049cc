#include "Tests/Plugin/StoryTeller.h"

#include <algorithm>

/// What the switch does: links, traffic, counters, membership; and how a story begins.
namespace Tests {

using Reference::IntfKind;
using Reference::none;

void StoryTeller::setUp() {
   for ( Profile profile = 0; profile < world_.profiles; ++profile )
      makeProfile( profile );
   tell( { .kind = EventKind::defaultName, .profile = chance_.pick( world_.profiles ) } );
   for ( Unit unit = 0; unit < world_.units; ++unit )
      tell( { .kind = EventKind::unitMade, .unit = unit } );
   for ( Intf intf = 0; intf < static_cast< Intf >( world_.intfs.size() ); ++intf ) {
      if ( is( intf, IntfKind::ethernet ) ) {
         Traffic & traffic = traffic_[intf];
         traffic.in = chance_.pick( 1000000u );
         traffic.out = chance_.pick( 1000000u );
         traffic.hasOut = !chance_.percent( 10 );
         tell(
            { .kind = EventKind::octets,
              .intf = intf,
              .in = traffic.in,
              .out = traffic.hasOut ? std::optional( traffic.out ) : std::nullopt } );
      }
      if ( is( intf, IntfKind::vlan ) )
         tell(
            { .kind = EventKind::vlanMade,
              .number = world_.intfs[static_cast< std::size_t >( intf )].vlanId } );
      if ( chance_.percent( 95 ) )
         tell( { .kind = EventKind::linkUp, .intf = intf } );
   }
   // The rest are steps like any others, and the plug-in starts somewhere among them.
   for ( int i = 0; i < 4; ++i ) {
      then( [this] { stepLag(); } );
      then( [this] { stepVlan(); } );
   }
   for ( Intf intf = 0; intf < static_cast< Intf >( world_.intfs.size() ); ++intf )
      then( [this, intf] { join( intf, someGroup() ); } );
   for ( Group group = 0; group < world_.groups; ++group )
      then( [this, group] { tell( { .kind = EventKind::mapping, .unit = someUnit(), .group = group } ); } );
   for ( int i = 0; i < 5; ++i )
      then( [this] { join( someIntf(), someGroup() ); } );
   for ( int i = 0; i < 8; ++i )
      then( [this] { stepTraffic(); } );
   restartIn_ = chance_.pick( 200 );
}

void StoryTeller::stepTime() {
   switch ( chance_.pick( 20 ) ) {
   case 0:
      pass( chance_.of( { 0.25, 0.5, 2.0625, 3.75 } ) );
      break;
   case 1:
      pass( 20 + chance_.pick( 60 ) );
      break;
   case 2: // in one go, while all counters stand still
      tell( { .kind = EventKind::time, .to = now() + 1 + chance_.pick( 30 ) } );
      break;
   default:
      pass( 1 + chance_.pick( 10 ) );
   }
}

void StoryTeller::stepTurn() { tell( { .kind = EventKind::turn } ); }

void StoryTeller::linkIs( Intf intf, bool up ) {
   if ( up )
      unplugged_.erase( intf );
   else
      unplugged_.insert( intf );
   // A link that follows shutdowns stays down while it is shut.
   if ( up && manner_.linksFall && published_.shut.contains( intf ) )
      return;
   tell( { .kind = up ? EventKind::linkUp : EventKind::linkDown, .intf = intf } );
}

/// Most links are up most of the time.
void StoryTeller::stepLink() {
   const Intf intf = someIntf();
   if ( !written_.linkUp( intf ) ) {
      linkIs( intf, true );
      return;
   }
   if ( chance_.percent( 40 ) )
      return;
   if ( chance_.percent( 25 ) )
      tell( { .kind = EventKind::linkGone, .intf = intf } );
   else
      linkIs( intf, false );
   if ( chance_.percent( 40 ) )
      tell( { .kind = EventKind::turn } );
   if ( chance_.percent( 60 ) )
      then( [this, intf] { linkIs( intf, true ); } );
}

void StoryTeller::stepTraffic() {
   const Intf port = somePort();
   if ( chance_.percent( 50 ) )
      rateIs( port, someRate(), 0 );
   else
      rateIs( port, chance_.percent( 50 ) ? 0 : someRate(), someRate() );
}

void StoryTeller::stepCounters() {
   const Intf port = somePort();
   Traffic & traffic = traffic_[port];
   if ( written_.counters.contains( port ) && chance_.percent( 40 ) ) {
      tell( { .kind = EventKind::countersGone, .intf = port } );
      return;
   }
   if ( chance_.percent( 15 ) )
      traffic.hasOut = !traffic.hasOut;
   tell(
      { .kind = EventKind::octets,
        .intf = port,
        .in = traffic.in,
        .out = traffic.hasOut ? std::optional( traffic.out ) : std::nullopt } );
}

/// A port that is in a port-channel is in no VLAN beside it.
void StoryTeller::stepLag() {
   const Intf port = somePort();
   if ( written_.lag.contains( port ) && chance_.percent( 50 ) ) {
      if ( chance_.percent( 50 ) )
         tell( { .kind = EventKind::lagMemberGone, .intf = port } );
      else
         tell( { .kind = EventKind::lagMember, .intf = port, .other = none } );
      return;
   }
   Intf lag = someIntf();
   while ( !is( lag, IntfKind::portChannel ) )
      lag = someIntf();
   for ( const auto & [vlan, ports] : written_.vlans )
      if ( ports.contains( port ) )
         tell( { .kind = EventKind::vlanMemberGone, .intf = port, .number = vlan } );
   tell( { .kind = EventKind::lagMember, .intf = port, .other = lag } );
}

void StoryTeller::stepVlan() {
   Intf vlanIntf = someIntf();
   while ( !is( vlanIntf, IntfKind::vlan ) )
      vlanIntf = someIntf();
   const int vlan = world_.intfs[static_cast< std::size_t >( vlanIntf )].vlanId;
   const auto there = written_.vlans.find( vlan );
   if ( there == written_.vlans.end() ) {
      tell( { .kind = EventKind::vlanMade, .number = vlan } );
      return;
   }
   if ( chance_.percent( 5 ) ) {
      tell( { .kind = EventKind::vlanGone, .number = vlan } );
      return;
   }
   const Intf member = someIntf();
   if ( there->second.contains( member ) ) {
      tell( { .kind = EventKind::vlanMemberGone, .intf = member, .number = vlan } );
      return;
   }
   const auto lag = written_.lag.find( member );
   const bool inLag = lag != written_.lag.end() && lag->second != none;
   if ( is( member, IntfKind::portChannel ) || ( is( member, IntfKind::ethernet ) && !inLag ) )
      tell( { .kind = EventKind::vlanMember, .intf = member, .number = vlan } );
}

} // namespace Tests
