// The switch on a kernel that fails as a kernel may, in virtual time.

#include "DataPlane/Linux/LinuxFaultTest.h"

namespace DataPlane::Linux {
namespace {

TEST_F( LinuxFault, startNamesWhatFailed ) {
   kernel->failingDumps = 1;
   EXPECT_EQ( "cannot read the links: Cannot allocate memory", made->start( listener ).text() );
   kernel->interruptedDumps = 100;
   EXPECT_EQ(
      "cannot read the links: they change faster than they can be read", made->start( listener ).text() );
   kernel->opens = false;
   EXPECT_EQ( "cannot open a netlink socket: Too many open files", made->start( listener ).text() );
   EXPECT_EQ( "", listener.take() );
}

TEST_F( LinuxFault, startMayFollowOneThatFailed ) {
   kernel->failingDumps = 1;
   EXPECT_FALSE( made->start( listener ).ok() );
   started();
   EXPECT_EQ( 2u, listener.links.size() );
   EXPECT_EQ( "boot 1", made->bootId() );
}

TEST_F( LinuxFault, changesComeWithEvents ) {
   started();
   kernel->add( { .ifIndex = 3, .name = "et3" } );
   kernel->remove( 1 );
   EXPECT_EQ( "", listener.take() );
   EXPECT_EQ( "et3 up, -et1", toldInTurn() );
}

TEST_F( LinuxFault, lostEventsAreMadeUpFor ) {
   started();
   kernel->links.erase( 1 );
   kernel->links[3] = { .ifIndex = 3, .name = "et3" };
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "-et1, et3 up, resynchronised", toldInTurn() );
}

TEST_F( LinuxFault, whatIsMadeUpForIsToldAsReadAnew ) {
   started();
   EXPECT_EQ( std::vector< Vel::String >(), listener.changed );
   kernel->links[3] = { .ifIndex = 3, .name = "et3" };
   kernel->events->push( Channel::Got::lost );
   toldInTurn();
   EXPECT_TRUE( listener.up( "et3" ) );
   EXPECT_EQ( std::vector< Vel::String >(), listener.changed );
   kernel->add( { .ifIndex = 4, .name = "et4" } );
   toldInTurn();
   EXPECT_EQ( std::vector< Vel::String >{ "et4" }, listener.changed );
}

TEST_F( LinuxFault, eventsThatAreLeftFromBeforeALossAreNotTaken ) {
   started();
   kernel->events->push( Channel::Got::lost );
   for ( int i = 0; i < 2 * LinuxSwitch::maxEventsPerTurn; ++i )
      kernel->add( { .ifIndex = 4, .name = "et4", .flags = i % 2 ? upAndRunning : 0 } );
   kernel->links[4].name = "et5"; // which was lost
   EXPECT_EQ( "et5 up, resynchronised", toldInTurn() );
   EXPECT_EQ( "", toldInTurn() );
   EXPECT_EQ( "", toldInTurn() );
}

TEST_F( LinuxFault, whatHappensAfterALossIsHeard ) {
   started();
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "resynchronised", toldInTurn() );
   kernel->add( { .ifIndex = 3, .name = "et3" } );
   EXPECT_EQ( "et3 up", toldInTurn() );
}

TEST_F( LinuxFault, lossIsToldOnceWhenItIsMadeUpFor ) {
   started();
   kernel->failingDumps = 2;
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "degraded", toldInTurn() );
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "", toldInTurn() );
   runFor( 2.5 );
   EXPECT_EQ( "resynchronised, healthy", listener.take() );
   runFor( 5 );
   EXPECT_EQ( "", listener.take() );
}

TEST_F( LinuxFault, oldNewsOfANameDoNotEndTheLinkThatHasItNow ) {
   struct Row {
      const char * what;
      std::vector< Bytes > news;
   };
   // News that have come between the opening of the channel and the dump are older than that.
   const Row rows[] = {
      { "renamed",
        { linkBytes( { .ifIndex = 5, .name = "et1" } ), linkBytes( { .ifIndex = 5, .name = "et2" } ),
          linkBytes( { .ifIndex = 9, .name = "et1" } ) } },
      { "deleted",
        { linkBytes( { .ifIndex = 4, .name = "et1" } ),
          linkBytes( { .ifIndex = 4, .name = "et1" }, RTM_DELLINK ),
          linkBytes( { .ifIndex = 9, .name = "et1" } ) } } };
   for ( const Row & row : rows ) {
      SCOPED_TRACE( row.what );
      made->stop();
      listener = {};
      kernel->links = { { 5, { .ifIndex = 5, .name = "et2" } }, { 9, { .ifIndex = 9, .name = "et1" } } };
      kernel->eventsOpened = [&] {
         for ( const Bytes & bytes : row.news )
            kernel->events->push( bytes );
      };
      started();
      EXPECT_EQ( "", toldInTurn() );
      kernel->events->push( Channel::Got::lost );
      EXPECT_EQ( "resynchronised", toldInTurn() );
      EXPECT_EQ( "", toldInTurn() );
      EXPECT_EQ( 9u, listener.link( "et1" )->ifIndex );
   }
}

TEST_F( LinuxFault, newLinkOfANameEndsOneWhoseEndWasMissed ) {
   started();
   kernel->links.erase( 1 );
   kernel->add( { .ifIndex = 7, .name = "et1" } );
   EXPECT_EQ( "-et1, et1 up", toldInTurn() );
   EXPECT_EQ( 7u, listener.link( "et1" )->ifIndex );
   EXPECT_EQ( Health(), listener.health );
}

TEST_F( LinuxFault, degradedWhileItCannotBeReadWhoHasAName ) {
   started();
   kernel->links.erase( 1 );
   kernel->failingDumps = 1;
   kernel->add( { .ifIndex = 7, .name = "et1" } );
   EXPECT_EQ( "degraded", toldInTurn() );
   // Not with each of the next news.
   kernel->add( { .ifIndex = 8, .name = "et8" } );
   EXPECT_EQ( "et8 up", toldInTurn() );
   runFor( 1.5 );
   EXPECT_EQ( "-et1, et1 up, healthy", listener.take() );
}

TEST_F( LinuxFault, newsThatAreLostAgainAndAgainAreMadeUpForNowAndThen ) {
   started();
   kernel->eventsOpened = [this] { kernel->events->push( Channel::Got::lost ); };
   kernel->events->push( Channel::Got::lost );
   const int before = kernel->dumps[RTM_GETLINK];
   runFor( 0.5 );
   EXPECT_EQ( before + LinuxSwitch::maxLossesInARow, kernel->dumps[RTM_GETLINK] );
   EXPECT_EQ( "resynchronised, resynchronised, resynchronised, degraded", listener.take() );
   EXPECT_EQ( "links change faster than they can be heard of", listener.health.text );
   runFor( 10 );
   EXPECT_LE( kernel->dumps[RTM_GETLINK], before + LinuxSwitch::maxLossesInARow + 11 );
   EXPECT_GE( kernel->dumps[RTM_GETLINK], before + LinuxSwitch::maxLossesInARow + 8 );
   // It ends, and after a while another loss is one of its own.
   kernel->eventsOpened = nullptr;
   runFor( 2.5 );
   listener.take();
   EXPECT_EQ( Health(), listener.health );
   kernel->links[3] = { .ifIndex = 3, .name = "et3" };
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "et3 up, resynchronised", toldInTurn() );
}

TEST_F( LinuxFault, interruptedDumpIsRepeated ) {
   started();
   kernel->links.erase( 1 );
   kernel->interruptedDumps = 3;
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "-et1, resynchronised", toldInTurn() );
}

TEST_F( LinuxFault, degradedUntilLinksCanBeReadAgain ) {
   started();
   kernel->links.erase( 1 );
   kernel->failingDumps = 2;
   kernel->events->push( Channel::Got::lost );
   EXPECT_EQ( "degraded", toldInTurn() );
   EXPECT_EQ( "cannot read the links: Cannot allocate memory", listener.health.text );
   runFor( 1.5 );
   EXPECT_EQ( "", listener.take() );
   runFor( 1 );
   EXPECT_EQ( "-et1, resynchronised, healthy", listener.take() );
}

TEST_F( LinuxFault, eventsThatFailAreHeardAnew ) {
   started();
   kernel->opens = false;
   kernel->events->push( Channel::Got::failed );
   EXPECT_EQ( "degraded", toldInTurn() );
   EXPECT_EQ( "cannot hear of links: device trouble", listener.health.text );
   kernel->links.erase( 1 );
   runFor( 1.5 );
   EXPECT_EQ( "degraded", listener.take() );
   kernel->opens = true;
   runFor( 1 );
   EXPECT_EQ( "-et1, resynchronised, healthy", listener.take() );
   kernel->add( { .ifIndex = 3, .name = "et3" } );
   EXPECT_EQ( "et3 up", toldInTurn() );
}

TEST_F( LinuxFault, upThatComesInTwoMessagesIsTwoFacts ) {
   kernel->links[1].flags = 0;
   started();
   kernel->add( { .ifIndex = 1, .name = "et1", .flags = IFF_UP } );
   kernel->add( { .ifIndex = 1, .name = "et1", .flags = IFF_UP | IFF_RUNNING | lowerUp } );
   EXPECT_EQ( "et1 down, et1 up", toldInTurn() );
   // The operational state, which follows, is no news.
   kernel->add( { .ifIndex = 1, .name = "et1", .flags = upAndRunning, .operState = 6 } );
   EXPECT_EQ( "", toldInTurn() );
}

TEST_F( LinuxFault, enslavementThatIsToldSeveralTimesIsOneFact ) {
   kernel->links[9] = { .ifIndex = 9, .name = "bond0", .kind = "bond" };
   started();
   // As the kernel tells it: set down by hand before, then taken, opened, and again with each flag that follows.
   const TestLink taken{ .ifIndex = 1, .name = "et1", .master = 9, .slaveKind = "bond" };
   TestLink slave = taken;
   for ( const unsigned flags :
         { unsigned( IFF_SLAVE ), unsigned( IFF_SLAVE ), unsigned( IFF_UP | IFF_SLAVE ),
           upAndRunning | IFF_SLAVE, upAndRunning | IFF_SLAVE, upAndRunning | IFF_SLAVE } ) {
      slave.flags = flags;
      kernel->add( slave );
   }
   EXPECT_EQ( "et1 admin-down, et1 down, et1 up, et1 in bond0", toldInTurn() );
   kernel->add( slave );
   EXPECT_EQ( "", toldInTurn() );
}

TEST_F( LinuxFault, linkThatTheBridgeRemovesStays ) {
   kernel->links[9] = { .ifIndex = 9, .name = "br0", .kind = "bridge" };
   kernel->links[1].master = 9;
   kernel->links[1].slaveKind = "bridge";
   started();
   kernel->events->push( linkBytes( kernel->links[1], RTM_DELLINK, AF_BRIDGE ) );
   EXPECT_EQ( "", toldInTurn() );
   kernel->add( { .ifIndex = 1, .name = "et1" } );
   for ( const Vel::String & line : ( turn(), listener.story ) )
      EXPECT_NE( "-et1", line );
   EXPECT_TRUE( listener.up( "et1" ) );
}

TEST_F( LinuxFault, thousandCarrierChangesThatTrickleInAreToldOneByOne ) {
   constexpr int changes = 1000;
   for ( Vel::U32 i = 1; i <= 50; ++i )
      kernel->links[i] = { .ifIndex = i, .name = Vel::text( "et", i ), .flags = upAndRunning };
   started();
   const int opened = kernel->opened;
   for ( int i = 0; i < changes; ++i ) {
      TestLink link = kernel->links[1 + Vel::U32( i ) % 50];
      link.flags ^= lowerUp;
      kernel->add( link );
      // The kernel repeats itself.
      kernel->add( link );
      if ( i % 50 == 49 )
         runFor( 1 );
   }
   EXPECT_EQ( std::size_t( changes ), listener.story.size() );
   for ( const auto & [name, link] : listener.links )
      EXPECT_TRUE( link.operUp ) << name;
   EXPECT_EQ( opened, kernel->opened ) << "nothing was opened anew";
}

TEST_F( LinuxFault, portChannelIsSetAtItsMasterAndVlanInterfaceAtItsDevice ) {
   kernel->links[9] = { .ifIndex = 9, .name = "bond0", .kind = "bond" };
   kernel->links[1] = { .ifIndex = 1, .name = "et1", .master = 9, .slaveKind = "bond" };
   kernel->links[5] = { .ifIndex = 5, .name = "br0", .kind = "bridge", .vlanFiltering = true };
   kernel->links[6] = { .ifIndex = 6, .name = "v10", .kind = "vlan", .lower = 5, .vlanId = 10 };
   started();
   made->linkSet( 1, Wire::PortChannelIntfId( "bond0" ), false, {} );
   made->linkSet( 2, Wire::VlanIntfId( "v10", 10 ), false, {} );
   turn();
   for ( const RequestId id : { 1, 2 } )
      EXPECT_TRUE( listener.results.at( id ).link.ok() ) << id;
   ASSERT_EQ( 2u, kernel->asked.size() );
   EXPECT_EQ( 9, fixedHeader< ifinfomsg >( messageIn( kernel->asked[0] ) )->ifi_index );
   EXPECT_EQ( 6, fixedHeader< ifinfomsg >( messageIn( kernel->asked[1] ) )->ifi_index );
   for ( const Vel::U32 untouched : { 1u, 5u } )
      EXPECT_TRUE( kernel->links[untouched].flags & IFF_UP ) << untouched;
}

TEST_F( LinuxFault, floodOfEventsIsTakenInPieces ) {
   started();
   for ( int i = 0; i < LinuxSwitch::maxEventsPerTurn + 1; ++i )
      kernel->add( { .ifIndex = 3, .name = "et3", .flags = i % 2 ? upAndRunning : 0 } );
   turn();
   EXPECT_EQ( std::size_t( LinuxSwitch::maxEventsPerTurn ), listener.story.size() );
   listener.take();
   EXPECT_EQ( "et3 admin-down", toldInTurn() );
}

TEST_F( LinuxFault, refusedLinkIsAWarningAndNoDegradation ) {
   started();
   kernel->add( { .ifIndex = 5, .name = "br0", .kind = "bridge", .vlanFiltering = true } );
   kernel->add( { .ifIndex = 6, .name = "a", .kind = "vlan", .lower = 5, .vlanId = 10 } );
   kernel->add( { .ifIndex = 7, .name = "b", .kind = "vlan", .lower = 5, .vlanId = 10 } );
   EXPECT_EQ( "br0 up, a up, warned", toldInTurn() );
   EXPECT_FALSE( listener.health.degraded );
   kernel->remove( 6 );
   EXPECT_EQ( "-a, b up, healthy", toldInTurn() );
}

TEST_F( LinuxFault, requestIsAnsweredInALaterTurnBehindItsEvents ) {
   started();
   made->linkSet( 1, eth( "et1" ), false, {} );
   EXPECT_EQ( "", listener.take() );
   EXPECT_EQ( "et1 admin-down, 1 done", toldInTurn() );
}

TEST_F( LinuxFault, requestMadeWhileAResultIsToldIsAnsweredInALaterTurn ) {
   started();
   made->linkSet( 1, eth( "et1" ), false, {} );
   listener.onDone = [this]( RequestId id ) {
      if ( id == 1 )
         made->linkSet( 2, eth( "et1" ), true, {} );
   };
   EXPECT_EQ( "et1 admin-down, 1 done", toldInTurn() );
   EXPECT_EQ( "et1 up, 2 done", toldInTurn() );
}

TEST_F( LinuxFault, refusalNamesTheReason ) {
   started();
   kernel->code = []( const nlmsghdr & ) { return EPERM; };
   made->linkSet( 1, eth( "et1" ), true, {} );
   turn();
   EXPECT_EQ( "Operation not permitted", listener.results.at( 1 ).link.text() );
}

TEST_F( LinuxFault, acknowledgementOfWhatIsNotSoIsAFailure ) {
   started();
   kernel->setsLinks = false;
   made->linkSet( 1, eth( "et1" ), false, {} );
   EXPECT_EQ( "1 failed", toldInTurn() );
   EXPECT_EQ(
      "the kernel has acknowledged it, but the link is not down", listener.results.at( 1 ).link.text() );
   kernel->links[2].flags = 0;
   made->linkSet( 2, eth( "et2" ), true, "route inet 10.0.0.0/8 table=254 leg=et2\n" );
   turn();
   EXPECT_EQ(
      "the kernel has acknowledged it, but the link is not up", listener.results.at( 2 ).link.text() );
   EXPECT_EQ( 2u, kernel->asked.size() ) << "nothing is restored";
}

TEST_F( LinuxFault, linkThatCannotBeReadBackIsAFailure ) {
   started();
   made->linkSet( 1, eth( "et1" ), false, {} );
   kernel->answers = false;
   EXPECT_EQ( "et1 admin-down, 1 failed", toldInTurn() );
   EXPECT_EQ( "cannot read et1 back: the kernel has not answered", listener.results.at( 1 ).link.text() );
   kernel->answers = true;
   made->linkSet( 2, eth( "et2" ), false, {} );
   kernel->links.erase( 2 );
   turn();
   EXPECT_EQ( "cannot read et2 back: No such device", listener.results.at( 2 ).link.text() );
}

TEST_F( LinuxFault, requestThatAnotherHasFollowedIsNotReadBack ) {
   started();
   made->linkSet( 1, eth( "et1" ), false, {} );
   made->linkSet( 2, eth( "et1" ), true, {} );
   turn();
   EXPECT_TRUE( listener.results.at( 1 ).link.ok() );
   EXPECT_TRUE( listener.results.at( 2 ).link.ok() );
}

TEST_F( LinuxFault, answersWaitForAllEventsThatCameBeforeThem ) {
   started();
   for ( int i = 0; i < 2 * LinuxSwitch::maxEventsPerTurn + 1; ++i )
      kernel->add( { .ifIndex = 3, .name = "et3", .flags = i % 2 ? upAndRunning : 0 } );
   made->linkSet( 1, eth( "et1" ), false, {} );
   turn();
   EXPECT_FALSE( listener.results.count( 1 ) );
   EXPECT_TRUE( listener.link( "et1" )->adminUp );
   listener.take();
   EXPECT_EQ( "et3 admin-down, et1 admin-down, 1 done", toldInTurn() );
}

TEST_F( LinuxFault, requestThatCannotBeSentFailsInALaterTurn ) {
   started();
   kernel->sends = false;
   made->linkSet( 1, eth( "et1" ), true, {} );
   EXPECT_EQ( "", listener.take() );
   EXPECT_EQ( "1 failed", toldInTurn() );
}

TEST_F( LinuxFault, answersThatFailAreOpenedAnew ) {
   started();
   kernel->answers = false;
   made->linkSet( 1, eth( "et1" ), true, {} );
   kernel->answers = true;
   kernel->requests->push( Channel::Got::failed );
   EXPECT_EQ( "degraded", toldInTurn() );
   EXPECT_EQ( "1 failed", toldInTurn() );
   runFor( 1.5 );
   EXPECT_EQ( "healthy", listener.take() );
   made->linkSet( 2, eth( "et1" ), false, {} );
   EXPECT_EQ( "et1 admin-down, 2 done", toldInTurn() );
}

TEST_F( LinuxFault, resultOfARequestFromBeforeAnotherStartIsNotTold ) {
   started();
   made->linkSet( 1, eth( "et1" ), false, {} );
   RecordingListener other;
   ASSERT_TRUE( made->start( other ).ok() );
   other.take();
   turn();
   turn();
   EXPECT_EQ( "", other.take() );
   EXPECT_EQ( "", listener.take() );
}

TEST_F( LinuxFault, switchMayEndWithRequestsUnderWay ) {
   started();
   made->linkSet( 1, eth( "et1" ), true, "route inet 10.0.0.0/8 table=254 leg=et1\n" );
   made->linkSet( 2, eth( "et9" ), true, {} );
   made = nullptr;
   turn();
   EXPECT_EQ( "", listener.take() );
}

TEST_F( LinuxFault, restoreIsTriedAgainInTime ) {
   started();
   kernel->code = []( const nlmsghdr & message ) {
      return message.nlmsg_type == RTM_NEWROUTE ? ENETUNREACH : 0;
   };
   made->linkSet( 1, eth( "et1" ), true, "route inet 10.0.0.0/8 table=254 leg=et1\n" );
   runFor( 3 );
   EXPECT_FALSE( listener.results.count( 1 ) );
   kernel->code = nullptr;
   runFor( 1 );
   ASSERT_TRUE( listener.results.count( 1 ) );
   EXPECT_TRUE( listener.results.at( 1 ).restore.ok() );
}

TEST_F( LinuxFault, restoreThatFailsIsReportedWithinElevenSeconds ) {
   started();
   kernel->code = []( const nlmsghdr & message ) {
      return message.nlmsg_type == RTM_NEWROUTE ? ENETUNREACH : 0;
   };
   made->linkSet( 1, eth( "et1" ), true, "route inet 10.0.0.0/8 table=254 leg=et1\n" );
   runFor( 11 );
   ASSERT_TRUE( listener.results.count( 1 ) );
   EXPECT_TRUE( listener.results.at( 1 ).link.ok() );
   EXPECT_FALSE( listener.results.at( 1 ).restore.ok() );
}

TEST_F( LinuxFault, laterRequestTakesThePlaceOfARestore ) {
   started();
   const Vel::String route = "route inet 10.0.0.0/8 table=254 leg=et1\n";
   kernel->code = []( const nlmsghdr & message ) {
      return message.nlmsg_type == RTM_NEWROUTE ? ENETUNREACH : 0;
   };
   // The first has not begun when the second is asked for, the second has when the third is.
   made->linkSet( 1, eth( "et1" ), true, route );
   made->linkSet( 2, eth( "et1" ), true, route );
   runFor( 1 );
   made->linkSet( 3, eth( "et1" ), false, {} );
   turn();
   for ( const RequestId id : { 1, 2 } ) {
      ASSERT_TRUE( listener.results.count( id ) ) << id;
      EXPECT_TRUE( listener.results.at( id ).link.ok() );
      EXPECT_EQ( "a later request took its place", listener.results.at( id ).restore.text() );
   }
   EXPECT_TRUE( listener.results.at( 3 ).link.ok() );
}

TEST_F( LinuxFault, countersThatCannotBeReadAreAFailure ) {
   EXPECT_EQ( "cannot read the counters: the switch is not started", made->countersRefresh( *pool ).text() );
   started();
   ASSERT_TRUE( made->countersRefresh( *pool ).ok() );
   kernel->stats[1] = { 1, 150, 250 };
   kernel->failingDumps = 1;
   EXPECT_EQ( "cannot read the counters: Cannot allocate memory", made->countersRefresh( *pool ).text() );
   const auto * const dir = pool->intfCounterDir( eth( "et1" ) );
   EXPECT_EQ( "in 100 out 200", stringValue( dir->counter( "current" )->statistics() ) );
   ASSERT_TRUE( made->countersRefresh( *pool ).ok() );
   EXPECT_EQ( "in 150 out 250", stringValue( dir->counter( "current" )->statistics() ) );
}

TEST_F( LinuxFault, countersOfAnInterruptedDumpAreReadAgain ) {
   started();
   kernel->interruptedDumps = 2;
   ASSERT_TRUE( made->countersRefresh( *pool ).ok() );
   EXPECT_EQ( 1u, pool->intfCounterDirs() );
}

TEST_F( LinuxFault, portWithoutCountersHasNoEntry ) {
   started();
   ASSERT_TRUE( made->countersRefresh( *pool ).ok() );
   EXPECT_TRUE( pool->intfCounterDir( eth( "et1" ) ) );
   EXPECT_FALSE( pool->intfCounterDir( eth( "et2" ) ) );
}

TEST_F( LinuxFault, routesAreReadOnceForManySnapshotsOfATurn ) {
   for ( Vel::U32 i = 1; i <= 64; ++i ) {
      kernel->links[i] = { .ifIndex = i, .name = Vel::text( "et", i ) };
      kernel->routes.push_back( routeOver( i, RTPROT_STATIC ) );
      kernel->routes.push_back( routeOver( i, RTPROT_BGP ) );
   }
   started();
   const auto wanted = []( Vel::U32 i ) {
      return Vel::text( "route inet 10.0.0.", i, "/32 table=254 protocol=4 scope=0 type=1 leg=et", i, "\n" );
   };
   for ( Vel::U32 i = 1; i <= 64; ++i )
      EXPECT_EQ( wanted( i ), made->linkSnapshot( eth( Vel::text( "et", i ) ) ).text );
   EXPECT_EQ( 4, kernel->dumps[RTM_GETROUTE] ) << "of two versions of IP each: those of the first, and all";
   // In the next turn they may be others.
   turn();
   kernel->routes.erase( kernel->routes.begin() );
   EXPECT_EQ( "", made->linkSnapshot( eth( "et1" ) ).text );
   EXPECT_EQ( wanted( 2 ), made->linkSnapshot( eth( "et2" ) ).text );
   EXPECT_EQ( 8, kernel->dumps[RTM_GETROUTE] );
}

TEST_F( LinuxFault, routesThatCouldNotBeReadAreReadForTheNextSnapshot ) {
   kernel->routes.push_back( routeOver( 2, RTPROT_STATIC ) );
   started();
   EXPECT_TRUE( made->linkSnapshot( eth( "et1" ) ).outcome.ok() );
   kernel->refused = []( const nlmsghdr & request ) {
      return request.nlmsg_type == RTM_GETROUTE ? ENOMEM : 0;
   };
   EXPECT_EQ(
      "cannot read the routes: Cannot allocate memory", made->linkSnapshot( eth( "et2" ) ).outcome.text() );
   kernel->refused = nullptr;
   EXPECT_NE( "", made->linkSnapshot( eth( "et2" ) ).text );
}

TEST_F( LinuxFault, snapshotThatCannotBeTakenIsAFailure ) {
   started();
   kernel->failingDumps = 1;
   const LinkSnapshot snapshot = made->linkSnapshot( eth( "et1" ) );
   EXPECT_EQ( "cannot read the addresses: Cannot allocate memory", snapshot.outcome.text() );
   EXPECT_EQ( "", snapshot.text );
}

TEST_F( LinuxFault, lackOfTheRightToSetLinksIsToldAtTheStart ) {
   kernel->permits = false;
   started();
   EXPECT_FALSE( listener.health.degraded ) << "links are known";
   EXPECT_EQ(
      "no link can be set up or down: the agent lacks the right to administer the network (CAP_NET_ADMIN)",
      listener.health.text );
   made->linkSet( 1, eth( "et1" ), false, "" );
   runFor( 1 );
   EXPECT_EQ( "Operation not permitted", listener.results.at( 1 ).link.text() );
   kernel->permits = true;
   RecordingListener later;
   EXPECT_TRUE( made->start( later ).ok() );
   EXPECT_EQ( "", later.health.text );
}

TEST_F( LinuxFault, rightThatNothingIsKnownOfIsNotSaidToLack ) {
   for ( const int code : { ENODEV, EINVAL, ENOMEM, 0 } ) {
      kernel->noLink = code;
      RecordingListener other;
      EXPECT_TRUE( made->start( other ).ok() );
      EXPECT_EQ( "", other.health.text ) << code;
      made->stop();
   }
   EXPECT_TRUE( kernel->asked.empty() );
}

} // namespace
} // namespace DataPlane::Linux
