#pragma once

#include "Agent/Commands/FakeChildrenRig.h"
#include "Agent/Hooks/HookRunner.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

/// Hooks over a log that the test writes, in virtual time, with children that do what the test says.
class HookStory : public testing::Test {
 protected:
   using Lines = std::vector< std::string >;
   using Moment = Config::Moment;

   HookStory() {
      Vel::System::clockIs( clock );
      clock->commitHookIs( [this] {
         if ( runner )
            runner->turnEnds();
         // As the stores do it: what waits is let out by a commit that succeeds.
         if ( storeWorks )
            for ( auto & call : std::exchange( whenStored, {} ) )
               clock->effectIs( call );
         return true;
      } );
      start();
   }
   ~HookStory() override {
      runner.reset();
      Vel::System::clockIs( nullptr );
   }

   static Config::Hook hook( std::set< Moment > at, const std::string & command, unsigned seconds = 10 ) {
      Config::Hook result;
      result.at = std::move( at );
      result.command = *Config::Command::parse( command ).value;
      result.timeLimit = Config::Duration::fromSeconds( seconds );
      return result;
   }
   /// An agent: what is kept is there already.
   void start() {
      runner = std::make_unique< Agent::HookRunner >(
         clock, wheel, children, Agent::HookRunner::Model{ events, hookDir },
         Agent::HookRunner::Outside{
            "/lib/http-hook",
            [this]( std::function< void() > call ) {
               whenStored.push_back( std::move( call ) );
               clock->effectIs( [] {} );
            },
            [this]( const Agent::HookFailure & failure ) { failures.push_back( failure ); },
            [this]( const std::string & name, Vel::U64 count ) { missed[name] += count; },
            [this]( const std::string & line ) { log.push_back( line ); } } );
      runner->configurationIs( configured );
   }
   /// It is killed, with what runs; a run that waits for the store is forgotten.
   void restart() {
      runner.reset();
      whenStored.clear();
      start();
      clock->runUntilIdle();
   }
   void configurationIs( std::map< std::string, Config::Hook > hooks ) {
      configured = std::move( hooks );
      runner->configurationIs( configured );
      clock->runUntilIdle();
   }

   /// Writes an event, which belongs to the next turn.
   void write( const std::string & what, const std::string & state = "", const std::string & unit = "u1" ) {
      const std::string sequence = std::to_string( events->last() + 1 );
      events->add(
         { Agent::EventType::unit, "{\"sequence\":" + sequence + ",\"type\":\"unit\",\"subject\":\"" + unit +
                                      "\",\"what\":\"" + what + "\",\"units\":[\"" + unit +
                                      "\"],\"state\":\"" + state + "\"}" } );
   }
   void enters( const std::string & unit = "u1" ) {
      write( "state", "entering", unit );
      clock->runUntilIdle();
   }
   void ends( int status = 0, int signal = 0 ) {
      children.ends( children.last(), status, signal );
      clock->runUntilIdle();
   }
   void says( const std::string & text, Agent::Children::Stream stream = Agent::Children::Stream::output ) {
      children.says( children.last(), text, stream );
      clock->runUntilIdle();
   }
   const Agent::HookRecord & kept( const std::string & name = "h" ) { return *hookDir->hook( name ); }
   /// The events that the child was begun for, in order.
   std::vector< std::string > eventsOf( const std::string & name = "h" ) {
      std::vector< std::string > result;
      for ( const auto & child : children.all() )
         if ( child.program.environment.at( 1 ) == "MAINTD_HOOK=" + name )
            result.push_back( child.program.environment.at( 3 ).substr( 13 ) );
      return result;
   }

   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >();
   Vel::Ptr< Cog::TimerWheel > wheel = Vel::make< Cog::TimerWheel >( clock, 1000u, 1800u, true, 1024u );
   Vel::Ptr< Agent::EventLog > events = Vel::make< Agent::EventLog >();
   Vel::Ptr< Agent::HookDir > hookDir = Vel::make< Agent::HookDir >();
   Agent::FakeChildren children;
   std::map< std::string, Config::Hook > configured{ { "h", hook( { Moment::enter }, "/bin/page a" ) } };
   bool storeWorks = true;
   std::vector< std::function< void() > > whenStored;
   std::vector< Agent::HookFailure > failures;
   std::map< std::string, Vel::U64 > missed;
   Lines log;
   std::unique_ptr< Agent::HookRunner > runner;
};
