// The switch on a kernel with port-channels and VLANs, in virtual time.

#include "DataPlane/Linux/LinuxFaultTest.h"

namespace DataPlane::Linux {
namespace {

/// A bridge br0 (9) with et1, a bond bond0 (8) with et2.
class LinuxMembers : public LinuxFault {
 protected:
   LinuxMembers() {
      kernel->links[9] = { .ifIndex = 9, .name = "br0", .kind = "bridge", .vlanFiltering = true };
      kernel->links[8] = { .ifIndex = 8, .name = "bond0", .kind = "bond" };
      kernel->links[1] = bridged();
      kernel->links[2] = { .ifIndex = 2, .name = "et2", .master = 8, .slaveKind = "bond" };
      kernel->vlans[1] = { { 1, 1, true }, { 10, 12 } };
      kernel->vlans[9] = { { 1, 1, true } };
   }
   static TestLink bridged() { return { .ifIndex = 1, .name = "et1", .master = 9, .slaveKind = "bridge" }; }
   Vel::String members() const { return listener.members(); }
   void tell( Bytes event ) { kernel->events->push( std::move( event ) ); }

   static constexpr const char * all = "et2 in bond0, 1+br0, 1+et1, 10+et1, 11+et1, 12+et1";
};

TEST_F( LinuxMembers, startTellsAllMembers ) {
   started();
   EXPECT_TRUE( made->tellsMembership() );
   EXPECT_EQ( all, members() );
}

TEST_F( LinuxMembers, changesComeWithEvents ) {
   started();
   tell( vlanBytes( 1, { { 11, 11 } }, RTM_DELVLAN ) );
   tell( vlanBytes( 9, { { 10, 10 } } ) );
   EXPECT_EQ( "11-et1, 10+br0", toldInTurn() );
}

TEST_F( LinuxMembers, stepsOfOneChangeAreOne ) {
   started();
   // From the bridge to the bond, as the kernel tells it.
   TestLink port = bridged();
   tell( linkBytes( port, RTM_NEWLINK, AF_BRIDGE ) );
   tell( linkBytes( port, RTM_DELLINK, AF_BRIDGE ) );
   tell( vlanBytes( 1, { { 1, 1 } }, RTM_DELVLAN ) );
   tell( vlanBytes( 1, { { 10, 12 } }, RTM_DELVLAN ) );
   port.master = 0;
   port.slaveKind.clear();
   port.flags = 0;
   kernel->add( port );
   port.flags = IFF_UP;
   kernel->add( port );
   port.master = 8;
   port.slaveKind = "bond";
   kernel->add( port );
   port.flags = upAndRunning;
   kernel->add( port );
   EXPECT_EQ( "et1 admin-down, et1 down, et1 up, 1-et1, 10-et1, 11-et1, 12-et1, et1 in bond0", toldInTurn() );
}

TEST_F( LinuxMembers, linkThatIsMadeAgainUnderItsNumberIsInNoVlanFromBefore ) {
   started();
   kernel->remove( 1 );
   kernel->add( bridged() );
   EXPECT_EQ( "1-et1, 10-et1, 11-et1, 12-et1, -et1, et1 up", toldInTurn() );
}

TEST_F( LinuxMembers, membersThatWereLostAreMadeUpFor ) {
   started();
   kernel->vlans[1] = { { 10, 10 }, { 20, 20 } };
   kernel->vlans.erase( 9 );
   kernel->links[2].master = 0;
   kernel->links[2].slaveKind.clear();
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "1-et1, 11-et1, 12-et1, 1-br0, et2 in none, 20+et1, resynchronised", toldInTurn() );
}

TEST_F( LinuxMembers, degradedUntilVlansCanBeReadAgain ) {
   started();
   kernel->vlans.erase( 1 );
   kernel->events->push( Channel::Got::lost );
   kernel->refused = [dumps = 0]( const nlmsghdr & request ) mutable {
      return request.nlmsg_type == RTM_GETVLAN && dumps++ < 2 ? ENOMEM : 0;
   };
   EXPECT_EQ( "degraded", toldInTurn() );
   EXPECT_EQ( "cannot read the VLANs: Cannot allocate memory", listener.health.text );
   runFor( 2.5 );
   EXPECT_EQ( "1-et1, 10-et1, 11-et1, 12-et1, resynchronised, healthy", listener.take() );
}

TEST_F( LinuxMembers, vlanThatIsLeftForAnotherDefaultIsReadAgain ) {
   started();
   // The kernel tells only this when the default of a bridge changes.
   kernel->vlans[1] = { { 7, 7 }, { 10, 12 } };
   kernel->vlans[9] = { { 7, 7 } };
   tell( vlanBytes( 9, { { 7, 7 } }, RTM_NEWVLAN, BRIDGE_VLAN_INFO_PVID ) );
   tell( vlanBytes( 1, { { 7, 7 } }, RTM_NEWVLAN, BRIDGE_VLAN_INFO_PVID ) );
   EXPECT_EQ( "1-et1, 1-br0, 7+et1, 7+br0", toldInTurn() );
   // Once.
   kernel->vlans.clear();
   tell( vlanBytes( 1, { { 20, 20 } } ) );
   EXPECT_EQ( "20+et1", toldInTurn() );
}

TEST_F( LinuxMembers, vlansAreNotReadAgainForPortsThatJoinAndLeave ) {
   started();
   const int before = kernel->dumps[RTM_GETVLAN];
   for ( Vel::U32 port = 11; port < 20; ++port ) {
      kernel->add( { .ifIndex = port, .name = Vel::text( "et", port ), .master = 9, .slaveKind = "bridge" } );
      tell( vlanBytes( port, { { 1, 1, true } } ) );
      tell( vlanBytes( port, { { 1, 1, true } } ) );
   }
   tell( vlanBytes( 11, { { 1, 1 } }, RTM_DELVLAN ) );
   tell( vlanBytes( 11, { { 7, 7, true } } ) );
   turn();
   EXPECT_TRUE( listener.vlanMembers.count( { 1, "et19" } ) && listener.vlanMembers.count( { 7, "et11" } ) );
   EXPECT_EQ( before, kernel->dumps[RTM_GETVLAN] );
}

TEST_F( LinuxMembers, dumpOfVlansThatHidesSomeWithoutAMarkIsNotTaken ) {
   // A link that goes while the kernel walks through them makes it skip another.
   const auto hiddenOnce = [this] {
      kernel->hidden = [this, dump = kernel->dumps[RTM_GETVLAN] + 1]( Vel::U32 ifIndex ) {
         return ifIndex == 1 && kernel->dumps[RTM_GETVLAN] == dump;
      };
   };
   hiddenOnce();
   started();
   EXPECT_EQ( all, members() );
   hiddenOnce();
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "resynchronised", toldInTurn() );
   hiddenOnce();
   tell( vlanBytes( 1, { { 11, 11, true } } ) );
   EXPECT_EQ( "", toldInTurn() ) << "the default has moved, so all are read again";
   EXPECT_EQ( all, members() );
}

TEST_F( LinuxMembers, degradedWhileNoTwoDumpsOfVlansAreTheSame ) {
   started();
   kernel->hidden = [this]( Vel::U32 ifIndex ) {
      return ifIndex == 1 && kernel->dumps[RTM_GETVLAN] % 2 == 0;
   };
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "degraded", toldInTurn() );
   EXPECT_EQ( "cannot read the VLANs: they change faster than they can be read", listener.health.text );
   kernel->hidden = nullptr;
   runFor( 1.5 );
   EXPECT_EQ( "resynchronised, healthy", listener.take() );
   EXPECT_EQ( all, members() );
}

TEST_F( LinuxMembers, degradedWhileVlansThatMayHaveBeenLeftCannotBeRead ) {
   started();
   kernel->failingDumps = 1;
   kernel->vlans[1] = { { 7, 7 } };
   tell( vlanBytes( 1, { { 7, 7 } }, RTM_NEWVLAN, BRIDGE_VLAN_INFO_PVID ) );
   EXPECT_EQ( "7+et1, degraded", toldInTurn() );
   runFor( 1.5 );
   EXPECT_EQ( "1-et1, 10-et1, 11-et1, 12-et1, healthy", listener.take() );
}

TEST_F( LinuxMembers, startNamesVlansThatCannotBeRead ) {
   kernel->refused = []( const nlmsghdr & request ) { return request.nlmsg_type == RTM_GETVLAN ? EPERM : 0; };
   EXPECT_EQ( "cannot read the VLANs: Operation not permitted", made->start( listener ).text() );
}

TEST_F( LinuxMembers, kernelsWithoutVlansOfBridgesHavePortChannelsAndPlainBridges ) {
   kernel->refused = []( const nlmsghdr & request ) {
      return request.nlmsg_type == RTM_GETVLAN ? EOPNOTSUPP : 0;
   };
   kernel->links[9].vlanFiltering = false;
   started();
   EXPECT_EQ( "et2 in bond0, 1+br0, 1+et1", members() );
   EXPECT_EQ( Health(), listener.health );
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "resynchronised", toldInTurn() );
}

TEST_F( LinuxMembers, vlanInterfaceThatCannotBeCountedIsAWarningAndNoDegradation ) {
   started();
   kernel->add( { .ifIndex = 20, .name = "v10", .kind = "vlan", .lower = 9, .vlanId = 10 } );
   EXPECT_EQ( "v10 up", toldInTurn() );
   kernel->links[9].vlanFiltering = false;
   kernel->add( kernel->links[9] );
   EXPECT_EQ( "10-et1, 11-et1, 12-et1, warned", toldInTurn() );
   EXPECT_FALSE( listener.health.degraded );
   EXPECT_EQ(
      "VLAN interface \"v10\" cannot be counted: bridge \"br0\" does not filter VLANs",
      listener.health.text );
   kernel->add( { .ifIndex = 21, .name = "v10b", .kind = "vlan", .lower = 9, .vlanId = 10 } );
   turn();
   EXPECT_EQ(
      "link \"v10b\" is refused: VLAN 10 has an interface on another bridge already, \"v10\"; "
      "VLAN interface \"v10\" cannot be counted: bridge \"br0\" does not filter VLANs",
      listener.health.text );
   kernel->remove( 21 );
   kernel->links[9].vlanFiltering = true;
   kernel->add( kernel->links[9] );
   listener.take();
   EXPECT_EQ( "10+et1, 11+et1, 12+et1, healthy", toldInTurn() );
}

TEST_F( LinuxMembers, nothingIsToldAfterStop ) {
   started();
   made->stop();
   EXPECT_EQ( "", listener.take() );
   EXPECT_EQ( all, members() ) << "it has not been taken back either";
}

} // namespace
} // namespace DataPlane::Linux
