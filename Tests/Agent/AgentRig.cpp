#include "Tests/Agent/AgentRig.h"

#include "Agent/Control/RequestRig.h"
#include "DataPlane/Simulated/Factory.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace Tests {

namespace {

/// et1 to et5, a port-channel of et3 and et4, and a VLAN interface with et5.
DataPlane::Simulated::Description description() {
   DataPlane::Simulated::Description result;
   result.bootId = "first boot";
   result.ports = { { "et1", {} }, { "et2", {} }, { "et3", {} }, { "et4", {} }, { "et5", {} } };
   result.portChannels = { { "pc1", { "et3", "et4" } } };
   result.vlans = { { 10, "vlan10", { "et5" } } };
   return result;
}

std::string newFolder() {
   std::string name = std::filesystem::temp_directory_path() / "agentXXXXXX";
   if ( !mkdtemp( name.data() ) )
      throw std::runtime_error( "no folder for a test: " + name );
   return name;
}

} // namespace

AgentRig::AgentRig( const std::string & configuration, Links links )
   : links_( links ), folder_( newFolder() ), time_( Vel::make< Cog::VirtualTime >( begin ) ) {
   configurationIs( configuration );
   world_.time = time_;
   world_.children = &children_;
   world_.boot = &boot_;
   if ( links_ == Links::simulated )
      makeSwitch( description() );
}

AgentRig::AgentRig(
   const std::string & configuration, const std::vector< DataPlane::Simulated::Route > & routes,
   const std::map< std::string, double > & speeds )
   : links_( Links::simulated ), folder_( newFolder() ), time_( Vel::make< Cog::VirtualTime >( begin ) ) {
   configurationIs( configuration );
   world_.time = time_;
   world_.children = &children_;
   world_.boot = &boot_;
   auto described = description();
   described.routes = routes;
   for ( auto & port : described.ports )
      if ( const auto speed = speeds.find( port.name ); speed != speeds.end() )
         port.speedBps = speed->second;
   makeSwitch( described );
}

void AgentRig::makeSwitch( const DataPlane::Simulated::Description & description ) {
   firstLoop_ = Vel::make< Cog::EventLoop >( time_ );
   const auto made = DataPlane::switchNewSimulated( firstLoop_, description );
   if ( !made.outcome.ok() )
      throw std::runtime_error( made.outcome.text() );
   watched_ = Vel::make< WatchedSwitch >( made.made );
   world_.switch_ = watched_;
   world_.simulation = made.simulation;
}

AgentRig::~AgentRig() {
   crash();
   std::error_code ignored;
   std::filesystem::remove_all( folder_, ignored );
}

/// Which links there are is said by description(): the agent gets the switch, and does not make it.
void AgentRig::configurationIs( const std::string & configuration ) {
   std::ofstream file( folder_ + "/maintd.yaml" );
   if ( links_ == Links::kernel )
      file << "version: 1\nswitch: linux\n" << configuration;
   else
      file << "version: 1\nswitch: simulated\n"
           << configuration << "simulated:\n  clock: virtual\n  ports: {et1: {}}\n";
}

int AgentRig::reload( const std::string & configuration ) {
   configurationIs( configuration );
   return post( "reload" );
}

Apps::MaintdOptions AgentRig::options() const {
   Apps::MaintdOptions options;
   options.config = folder_ + "/maintd.yaml";
   options.stateDir = folder_ + "/state";
   options.runtimeDir = folder_ + "/run";
   options.pluginDir = MAINT_TEST_PLUGIN_DIR;
   options.httpHook = "/usr/lib/maintd/http-hook";
   return options;
}

Apps::Released AgentRig::releaseAll() {
   watched_->clockIs( *firstLoop_ );
   time_->targetIs( time_->now() + 60 );
   return Apps::Maintd( options(), world_ ).releaseAll();
}

void AgentRig::reboot( double off, double step ) {
   crash();
   const double wall = time_->now() + boot_.wallOffset + off + step;
   time_->spend( std::max( 0.0, wall - time_->now() ) );
   boot_ = { boot_.id + " again", time_->now(), wall - time_->now() };
}

void AgentRig::withoutAgent( const std::function< void() > & action ) {
   simulation().schedulerIs( firstLoop_ );
   watched_->clockIs( *firstLoop_ );
   action();
   firstLoop_->post( [this] { firstLoop_->stop(); } );
   firstLoop_->run();
}

void AgentRig::start() {
   agent_ = std::make_unique< Apps::Maintd >( options(), world_ );
   if ( const std::string problem = agent_->start(); !problem.empty() )
      throw std::runtime_error( problem );
   if ( watched_ )
      watched_->clockIs( agent_->loop() );
   time_->reachedIs( [this] { agent_->loop().stop(); } );
   wakeup_
      .is(
         Vel::make< Cog::TimerWheel >( Vel::Ptr< Vel::Clock >( &agent_->loop() ), 1000u, 60u, true, 16u ),
         this )
      .hasNotificationActiveIs( true );
   wakeupIs();
   agent_->loop().commitHookIs( [this] { return turnIsDone(); } );
   for ( const Operation & operation : std::exchange( operations_, {} ) )
      if ( operation.answer->status == 0 )
         agent_->loop().post( [this, operation] { put( operation ); } );
}

bool AgentRig::turnIsDone() {
   ++turns_;
   if ( turnHook_ )
      turnHook_();
   if ( turns_ == crashTurn_ ) {
      crashed_ = true;
      agent_->loop().stop();
      return crashEffects_ == Effects::out;
   }
   perform();
   return true;
}

/// What happens outside comes in with the next turn.
void AgentRig::perform() {
   while ( !actions_.empty() && actions_.begin()->first <= time() ) {
      agent_->loop().post( std::move( actions_.begin()->second ) );
      actions_.erase( actions_.begin() );
   }
}

void AgentRig::at( double seconds, std::function< void() > action ) {
   actions_.emplace( seconds, std::move( action ) );
   wakeupIs();
}

/// While time is going on to a later one, it has to stop for the next action.
void AgentRig::wakeupIs() {
   const auto next = actions_.upper_bound( time() );
   if ( agent_ && next != actions_.end() )
      wakeup_->timeMinIs( begin + next->first );
}

void AgentRig::runUntil( double seconds ) {
   crashed_ = false;
   while ( !crashed_ ) {
      const double next = actions_.empty() ? seconds : std::min( seconds, actions_.begin()->first );
      time_->targetIs( begin + next );
      Cog::EventLoop & loop = agent_->loop();
      if ( loop.currentTime() < time_->target() || loop.dueTime() <= time_->target() )
         loop.run();
      else if ( next >= seconds )
         break;
      else
         perform();
   }
   if ( crashed_ )
      crash();
}

void AgentRig::turn() {
   agent_->loop().post( [this] { agent_->loop().stop(); } );
   agent_->loop().run();
}

void AgentRig::signal( int number ) {
   raise( number );
   if ( !agent_->loop().inTurn() )
      turn();
}

void AgentRig::crash() {
   wakeup_.del();
   // What is sent to a process that has gone does not come to the next one.
   if ( agent_ ) {
      sigset_t sent;
      sigemptyset( &sent );
      sigaddset( &sent, SIGHUP );
      const timespec atOnce{ 0, 0 };
      sigtimedwait( &sent, nullptr, &atOnce );
   }
   agent_.reset();
}

std::shared_ptr< const Agent::HttpReply >
AgentRig::ask( const std::string & method, const std::string & path, const std::string & body ) {
   const auto answer = std::make_shared< Agent::HttpReply >();
   answer->status = 0;
   Agent::HttpRequest request = Agent::requestOf( method, "/api/v1/" + path );
   request.body = body;
   request.by = "tester";
   request.local = local;
   const auto handle = [this, operation = Operation{ request, answer }] { put( operation ); };
   if ( agent_->loop().inTurn() ) {
      handle();
   } else {
      agent_->loop().post( handle );
      runUntil( time() );
   }
   return answer;
}

void AgentRig::put( const Operation & operation ) {
   const std::string & path = operation.request.path;
   if (
      operation.request.method == "POST" && ( path.starts_with( "/api/v1/units/" ) ||
                                              path.ends_with( "/release" ) || path.ends_with( "/reload" ) ) )
      operations_.push_back( operation );
   agent_->api().handle(
      operation.request, [answer = operation.answer]( const Agent::HttpReply & reply ) { *answer = reply; } );
}

std::string AgentRig::get( const std::string & path ) {
   Agent::HttpRequest request = Agent::requestOf( "GET", "/api/v1/" + path );
   request.local = true;
   const auto body = std::make_shared< std::string >();
   agent_->api().handle( request, [body]( const Agent::HttpReply & reply ) { *body = wholeBody( reply ); } );
   // Some answers take some turns.
   if ( body->empty() && !agent_->loop().inTurn() )
      runUntil( time() );
   return *body;
}

std::string AgentRig::fact( const std::string & path, const std::string & member ) {
   const auto json = nlohmann::json::parse( get( path ) );
   return json.contains( member ) ? json.at( member ).dump() : "no member " + member;
}

std::string AgentRig::picture() {
   std::string result;
   for ( const auto & unit : nlohmann::json::parse( get( "units" ) ) )
      for ( const char * member :
            { "name", "state", "generation", "interfaces", "reason", "total-violations" } )
         result += unit.at( member ).dump() + ( member == std::string( "total-violations" ) ? "\n" : " " );
   for ( const auto & intf : nlohmann::json::parse( get( "interfaces" ) ) )
      for ( const char * member :
            { "name", "state", "units", "profile", "start-time", "state-time", "shut" } )
         result += intf.at( member ).dump() + ( member == std::string( "shut" ) ? "\n" : " " );
   return result;
}

void AgentRig::traffic( const std::string & port, double bps ) {
   if ( const auto outcome = simulation().trafficIs( port, bps, bps, 0 ); !outcome.ok() )
      throw std::runtime_error( outcome.text() );
}

double AgentRig::timeOf( const std::string & move ) const {
   for ( const auto & made : watched_->moves() )
      if ( made.what == move )
         return made.time - begin;
   return -1;
}

std::vector< std::string > AgentRig::moves() const {
   std::vector< std::string > result;
   for ( const auto & move : watched_->moves() )
      result.push_back( move.what );
   return result;
}

} // namespace Tests
