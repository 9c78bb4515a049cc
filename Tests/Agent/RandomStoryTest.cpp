#include "Platform/Ledger/FaultEngine.h"
#include "Tests/Agent/AgentRig.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <nlohmann/json.hpp>

#include <map>
#include <random>

/// Operators, links, traffic, configurations, faults and crashes at random. Whatever happens, when the faults are over
/// and all units have been brought back, every link is as it was and nothing is left behind.
namespace {

using Tests::AgentRig;

class Story {
 public:
   explicit Story( unsigned seed ) : random_( seed ), rig_( configuration() ) {
      rig_.storeUsedIs( [this]( Ledger::StoreEngine & engine ) -> Ledger::StoreEngine & {
         auto & faults = engine.name().starts_with( "state" ) ? stateStore_ : runtimeStore_;
         faults = std::make_unique< Ledger::FaultEngine >( engine );
         return *faults;
      } );
      rig_.start();
   }

   void play( int steps ) {
      for ( int step = 0; step < steps; ++step ) {
         act();
         startAgain();
         go( static_cast< double >( 1 + pick( 8 ) ) );
         if ( nlohmann::json::parse( rig_.get( "agent" ) ).at( "plugin" ).at( "state" ) == "loaded" )
            look();
      }
      finish();
   }

 private:
   unsigned pick( unsigned below ) { return random_() % below; }
   std::string port() { return "et" + std::to_string( 1 + pick( 5 ) ); }
   std::string unit() { return "u" + std::to_string( 1 + pick( 3 ) ); }

   void go( double seconds ) {
      const double end = rig_.time() + seconds;
      startAgain();
      rig_.runUntil( end );
      startAgain();
      rig_.runUntil( end );
   }
   /// A crash is planned for one agent only; the next one finds a store that works.
   void startAgain() {
      if ( rig_.running() )
         return;
      rig_.crashAfterTurnIs( 0, AgentRig::Effects::out );
      rig_.start();
   }

   void act() {
      const unsigned what = pick( 15 );
      RC_LOG() << rig_.time() << " s: action " << what << "\n";
      switch ( what ) {
      case 0:
      case 1:
      case 2:
         rig_.post( "units/" + unit() + "/enter", R"({"reason":"random"})" );
         break;
      case 3:
      case 4:
         rig_.post( "units/" + unit() + "/exit" );
         break;
      case 5:
      case 6:
         rig_.traffic( port(), pick( 2 ) ? 0 : 20e3 * ( 1 << pick( 10 ) ) );
         break;
      case 7: {
         const std::string name = port();
         carrier_[name] = !carrier_[name];
         RC_ASSERT( !present( name ) || rig_.simulation().linkIs( name, !carrier_[name] ).ok() );
         break;
      }
      case 8: {
         const std::string name = port();
         RC_ASSERT(
            ( present( name ) ? rig_.simulation().linkDel( name ) : rig_.simulation().linkNew( name ) )
               .ok() );
         gone_[name] = present( name );
         break;
      }
      case 9:
         rig_.reload( configuration() );
         break;
      case 10:
         rig_.simulation().countersFaultIs( pick( 2 ) ? "no counters" : "" );
         break;
      case 11:
         rig_.simulation().linkSetFaultIs( pick( 2 ) ? "not permitted" : "" );
         break;
      case 12:
         rig_.crashAfterTurnIs( 0, AgentRig::Effects::out );
         if ( pick( 2 ) )
            ( pick( 2 ) ? stateStore_ : runtimeStore_ )->faultIs( pick( 20 ), 1 + pick( 40 ) );
         break;
      case 13: {
         // While no agent runs, links go and come, and the file is edited. What could not be committed is lost.
         rig_.crashAfterTurnIs( 0, AgentRig::Effects::out );
         stateStore_->faultDel();
         runtimeStore_->faultDel();
         go( 2 );
         rig_.crash();
         const std::string name = port();
         if ( pick( 2 ) ) {
            rig_.withoutAgent( [&] { RC_ASSERT( rig_.simulation().linkDel( name ).ok() ); } );
            gone_[name] = true;
         }
         if ( pick( 2 ) ) {
            rig_.withoutAgent( [&] { RC_ASSERT( rig_.simulation().linkNew( name ).ok() ); } );
            gone_[name] = false;
         }
         rig_.configurationIs( configuration() );
         break;
      }
      default:
         // What neither the state store nor the runtime folder took is lost with a crash; one trouble at a time.
         runtimeStore_->faultDel();
         rig_.crashAfterTurnIs(
            rig_.turns() + 1 + pick( 3 ), pick( 2 ) ? AgentRig::Effects::out : AgentRig::Effects::lost );
      }
   }

   bool present( const std::string & name ) const {
      const auto at = gone_.find( name );
      return at == gone_.end() || !at->second;
   }

   /// A unit is under maintenance only if somebody asked for it, and what is shut belongs to a unit that is not normal.
   void look() {
      RC_LOG() << rig_.time() << " s\n" << rig_.picture();
      std::map< std::string, std::string > states;
      for ( const auto & u : nlohmann::json::parse( rig_.get( "units" ) ) )
         states[u.at( "name" )] = u.at( "state" );
      for ( const auto & intf : nlohmann::json::parse( rig_.get( "interfaces" ) ) ) {
         if ( !intf.at( "shut" ).get< bool >() )
            continue;
         bool wanted = false;
         for ( const std::string name : intf.at( "units" ) )
            wanted = wanted || states[name] != "normal";
         RC_ASSERT( wanted );
      }
   }

   void finish() {
      rig_.crashAfterTurnIs( 0, AgentRig::Effects::out );
      startAgain();
      stateStore_->faultDel();
      runtimeStore_->faultDel();
      rig_.simulation().countersFaultIs( "" );
      rig_.simulation().linkSetFaultIs( "" );
      go( 30 );
      for ( const char * name : { "u1", "u2", "u3" } )
         rig_.post( std::string( "units/" ) + name + "/exit" );
      go( 30 );
      for ( const auto & u : nlohmann::json::parse( rig_.get( "units" ) ) )
         RC_ASSERT( u.at( "state" ) == "normal" );
      for ( const auto & intf : nlohmann::json::parse( rig_.get( "interfaces" ) ) ) {
         RC_ASSERT( !intf.at( "shut" ).get< bool >() );
         RC_ASSERT( intf.at( "state" ).is_null() );
      }
      std::map< std::string, std::string > last;
      for ( const std::string & move : rig_.moves() )
         last[move.substr( 0, move.find( ' ' ) )] = move;
      for ( const auto & [name, move] : last )
         RC_ASSERT( !present( name ) || move == name + " up" );
   }

   std::string group() {
      const char * const profiles[] = { "", ", profile: fast", ", profile: slow", ", profile: watch" };
      std::string result = "{interfaces: [";
      for ( int i = 1; i <= 5; ++i )
         if ( pick( 3 ) == 0 )
            result += "et" + std::to_string( i ) + ", ";
      if ( pick( 3 ) == 0 )
         result += "pc1, ";
      result += "nowhere]";
      if ( pick( 3 ) == 0 )
         result += ", vlans: [10]";
      return result + profiles[pick( 4 )] + "}";
   }
   std::string configuration() {
      const std::string threshold = std::to_string( 50 << pick( 4 ) );
      std::string result = "settle: " + std::to_string( pick( 12 ) ) +
                           "s\n"
                           "profiles:\n"
                           "  fast: {threshold: " +
                           threshold +
                           "kbps, load-interval: 10s, shutdown: true}\n"
                           "  slow: {threshold: 100kbps, load-interval: 20s, shutdown: true, "
                           "shutdown-max-delay: 30s}\n"
                           "  watch: {threshold: 1Mbps, load-interval: 5s}\n";
      result += std::string( "default-profile: " ) + ( pick( 2 ) ? "fast\n" : "watch\n" );
      result += "groups:\n";
      for ( const char * name : { "g1", "g2", "g3", "g4" } )
         result += "  " + std::string( name ) + ": " + group() + "\n";
      result += "units:\n";
      for ( const char * name : { "u1", "u2", "u3" } )
         result += "  " + std::string( name ) + ": {groups: [g" + std::to_string( 1 + pick( 2 ) ) + ", g" +
                   std::to_string( 3 + pick( 2 ) ) + "]}\n";
      return result;
   }

   std::mt19937 random_;
   AgentRig rig_;
   std::unique_ptr< Ledger::FaultEngine > stateStore_, runtimeStore_;
   std::map< std::string, bool > carrier_, gone_; ///< carrier: true is without one
};

RC_GTEST_PROP( RandomStory, leavesEveryLinkAsItWas, ( unsigned seed ) ) { Story( seed ).play( 25 ); }

} // namespace
