#include "Agent/Control/ControlApiRigTest.h"

#include "Agent/Control/RequestRig.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace Agent {

ControlApiRig::ControlApiRig() {
   const auto operation = [this]( const char * name ) {
      return [this, name]( const std::string & unit, const ControlCommands::Request & request ) {
         asked.push_back(
            std::string( name ) + " " + unit + " [" + request.reason + "] " + request.by +
            ( request.timeout ? " " + std::to_string( int( *request.timeout ) ) + "s" : "" ) +
            ( request.overridden.empty() ? "" : " although " + request.overridden ) );
         requests.push_back( request );
         return refusal ? ControlCommands::Taken{ refusal } : taken;
      };
   };
   commands.enterRepeated = [this]( const std::string &, const ControlCommands::Request & request ) {
      return request.key.empty() ? std::nullopt : repeated;
   };
   commands.plan = [this]( const std::string & unit, const std::string & session, auto purpose, auto told ) {
      const char * const purposes[] = { " to begin", "", " over the web" };
      asked.push_back( "plan " + unit + " [" + session + "]" + purposes[static_cast< int >( purpose )] );
      if ( !planRefusal )
         waiting.push_back( [this, told] {
            if ( whilePlanning )
               whilePlanning();
            told( planned );
         } );
      return planRefusal;
   };
   commands.enter = operation( "enter" );
   commands.exit = operation( "exit" );
   commands.progress = [this]( const std::string & unit ) {
      return unit == "u1" ? progress : ControlCommands::Progress();
   };
   const auto noted = []( const std::string & what, const ControlCommands::Request & request ) {
      return what + " by " + request.by + ( request.reason.empty() ? "" : ": " + request.reason ) +
             ( request.key.empty() ? "" : " " + request.key ) +
             ( request.with.empty() ? "" : " " + request.with );
   };
   commands.release = [this, noted]( const std::string & interface, const auto & request ) {
      asked.push_back( noted( "release " + interface, request ) );
      return ControlCommands::Taken{ refusal, 9, !refusal };
   };
   commands.reload = [this, noted]( const auto & request ) {
      asked.push_back( noted( "reload", request ) );
      return reloaded;
   };
   commands.simulated = [this]( const auto & what, std::function< void() > done ) {
      asked.push_back(
         what.what + " " + what.interface + " " + std::to_string( long( what.inBps ) ) + " " +
         std::to_string( long( what.outBps ) ) + " " + std::to_string( int( what.seconds ) ) +
         ( what.up ? " up" : " down" ) );
      if ( !refusal )
         waiting.push_back( std::move( done ) );
      return refusal;
   };
   commands.agent = [this] { return facts; };
   commands.groups = [] {
      return std::map< std::string, ControlCommands::Group >{
         { "shared", { std::nullopt, { "et2" } } },
         { "tenants", { "watch", { "vlan 10", "vlan 11" } } },
         { "uplinks", { std::nullopt, { "et1", "et2", "missing" } } },
         { "unused", { "fast", { "et9" } } } };
   };
   commands.history.hasUnit = []( const std::string & unit ) { return unit == "gone"; };
   commands.history.list = [this]( const std::string & unit, std::size_t limit ) {
      asked.push_back( "history of " + unit + ", at most " + std::to_string( limit ) );
      return std::string( "[]\n" );
   };
   commands.history.record = []( Vel::U32 id ) -> ControlCommands::History::Pieces {
      if ( id == 10 )
         return [left = 40]() mutable {
            if ( left-- == 0 )
               throw Api::Error{ Api::ErrorCode::internal, "it cannot be read", "10" };
            return std::string( 1000, ' ' );
         };
      if ( id != 7 && id != 9 )
         throw Api::Error{ Api::ErrorCode::notFound, "there is no maintenance", std::to_string( id ) };
      // The text of the other one is long.
      return [left = id == 7 ? 2 : 200]() mutable {
         return left-- > 0 ? ( left % 2 ? "{ " : "}\n" ) + std::string( left > 2 ? 1000 : 0, ' ' )
                           : std::string();
      };
   };
   commands.dump = [] { return std::string( "diagnostic\ntext\n" ); };
   commands.counters = [this] { return counted.get(); };
   commands.drift = []( const Wire::IntfId & intf ) { return intf.name() == "et1" ? "raised" : ""; };
   commands.shutProblem = [this]( const Wire::IntfId & intf ) {
      return intf == rig.et1 ? shutProblem : std::string();
   };
   commands.uncounted = [this]( const Wire::IntfId & intf ) {
      return intf == rig.vlan10 ? uncountedVlan : std::string();
   };
   commands.linkState = []( const Wire::IntfId & intf ) { return intf.name() == "et1" ? "down" : "up"; };
   commands.whenCommitted = [this]( std::function< void() > call ) {
      waiting.push_back( std::move( call ) );
   };
   commands.whenStored = [this]( std::function< void() > call ) {
      waitingForStore.push_back( std::move( call ) );
   };
   commands.later = [this]( std::function< void() > call ) { later.push_back( std::move( call ) ); };
   // Display time is an hour ahead, so that a time that is not translated shows.
   commands.wallTime = []( double time ) { return time + 3600; };
   commands.now = [this] { return now; };
   api = std::make_unique< ControlApi >( rig.model(), commands );
}

int ControlApiRig::ask( const std::string & method, const std::string & path, const std::string & body ) {
   HttpRequest request = requestOf( method, path );
   request.body = body;
   request.by = "ann";
   request.local = local;
   unsigned answers = 0;
   api->handle( request, [&]( HttpReply got ) {
      ++answers;
      reply = std::move( got );
   } );
   answeredAtOnce = answers == 1;
   commit();
   for ( turns = 0; answers == 0 && !later.empty(); ++turns )
      for ( const auto & call : std::exchange( later, {} ) )
         call();
   EXPECT_EQ( 1u, answers );
   return reply.status;
}

void ControlApiRig::commit() {
   // What is told of a plan may wait for the commit in its turn.
   while ( !waiting.empty() )
      for ( const auto & call : std::exchange( waiting, {} ) )
         call();
   if ( storeWorks )
      for ( const auto & call : std::exchange( waitingForStore, {} ) )
         call();
}

std::string ControlApiRig::refused() const {
   const nlohmann::json error = nlohmann::json::parse( reply.body ).at( "error" );
   EXPECT_FALSE( error.at( "message" ).get< std::string >().empty() );
   return error.at( "code" ).get< std::string >() + " " + error.at( "where" ).dump();
}

} // namespace Agent
