// The first steps of a start: the folders, stores, clock and switch that everything else stands on.

#include "Apps/ClockOffset.h"
#include "Apps/MaintdEntities.h"
#include "DataPlane/Linux/Factory.h"
#include "DataPlane/Simulated/Factory.h"
#include "Platform/Cog/RealTime.h"
#include "Platform/FastLog/FastLog.h"

#include <spdlog/spdlog.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace Apps {

namespace {

std::string makeFolder( const std::string & path ) {
   if ( mkdir( path.c_str(), 0755 ) == 0 || errno == EEXIST )
      return "";
   return "folder " + path + ": cannot create it: " + std::strerror( errno );
}

std::string kernelBootId() {
   std::ifstream file( "/proc/sys/kernel/random/boot_id" );
   std::string id;
   std::getline( file, id );
   return id.empty() ? "unknown" : id;
}

/// Empty if it cannot be read.
std::string content( const std::string & path ) {
   std::ostringstream text;
   text << std::ifstream( path ).rdbuf();
   return text.str();
}

/// Never leaves half a file.
bool writeWhole( const std::string & path, const std::string & text ) {
   const std::string fresh = path + ".new";
   std::ofstream out( fresh, std::ios::trunc );
   out << text;
   out.close();
   return out && std::rename( fresh.c_str(), path.c_str() ) == 0;
}

DataPlane::Simulated::Description
description( const Config::Simulated & config, const std::string & bootId ) {
   DataPlane::Simulated::Description result;
   result.bootId = bootId;
   for ( const auto & [name, port] : config.ports ) {
      auto & made = result.ports.emplace_back();
      made.name = name;
      if ( port.speed )
         made.speedBps = static_cast< double >( port.speed->bps() );
      for ( const Config::TrafficSegment & segment : port.traffic )
         made.traffic.push_back(
            { segment.kind == Config::TrafficSegment::Kind::ramp,
              static_cast< double >( segment.length.seconds() ), static_cast< double >( segment.in.bps() ),
              static_cast< double >( segment.out.bps() ) } );
   }
   for ( const auto & [name, members] : config.portChannels )
      result.portChannels.push_back( { name, { members.begin(), members.end() } } );
   for ( const auto & [id, vlan] : config.vlans )
      result.vlans.push_back( { id, vlan.name, { vlan.members.begin(), vlan.members.end() } } );
   for ( const Config::SimulatedRoute & route : config.routes )
      result.routes.push_back( { route.to, { route.via.begin(), route.via.end() }, route.metric } );
   return result;
}

} // namespace

std::string Maintd::openStore() {
   for ( const std::string & folder : { options_.stateDir, options_.runtimeDir } )
      if ( const std::string problem = makeFolder( folder ); !problem.empty() )
         return problem;
   if ( const auto status = lock_.lock( options_.stateDir ); !status.ok() )
      return status.text();
   // Two agents with a state folder each must not share what is in this one either. Both may be one folder.
   std::error_code ignored;
   if ( !std::filesystem::equivalent( options_.stateDir, options_.runtimeDir, ignored ) )
      if ( const auto status = runtimeLock_.lock( options_.runtimeDir ); !status.ok() )
         return status.text();
   try {
      FastLog::fileIs( options_.runtimeDir + "/fastlog", fastLogBytes );
   } catch ( const FastLog::Error & error ) {
      // It is there to look into what has happened, and stays in memory.
      fastLogProblem_ = error.what();
      spdlog::warn( "{}; it is kept in memory", fastLogProblem_ );
   }
   stateEngine_ = std::make_unique< Ledger::LmdbEngine >(
      "state store", options_.stateDir + "/state.mdb", Ledger::LmdbEngine::Durability::synced );
   runtimeEngine_ = std::make_unique< Ledger::LmdbEngine >(
      "runtime store", options_.runtimeDir + "/runtime.mdb", Ledger::LmdbEngine::Durability::unsynced );
   fallbackEngine_ = std::make_unique< Ledger::FallbackEngine >(
      storeUsed( *stateEngine_ ), options_.runtimeDir + "/unstored" );
   entityManager_ = Vel::make< Ledger::EntityManager >(
      [this]( std::function< void() > call ) { loop_->post( std::move( call ) ); } );
   persistence_ = std::make_unique< Ledger::Persistence >(
      entityManager_, *fallbackEngine_, storeUsed( *runtimeEngine_ ), Entities::kept(), Entities::leftOut() );
   if ( const auto status = persistence_->start(); !status.ok() ) {
      storeIsUnusable_ = status.isUnusable();
      return status.text();
   }
   makeEntities();
   return "";
}

Ledger::StoreEngine & Maintd::storeUsed( Ledger::StoreEngine & engine ) const {
   return world_.storeUsed ? world_.storeUsed( engine ) : engine;
}

void Maintd::makeEntities() { entities_ = std::make_unique< Entities >( *entityManager_ ); }

/// Kernel time since boot plus an offset that is fixed once for each boot.
std::string Maintd::makeTime() {
   if (
      configuration_.switchKind == Config::SwitchKind::simulated &&
      configuration_.simulated.clock == Config::Simulated::Clock::virtualTime ) {
      world_.time =
         Vel::make< Cog::VirtualTime >( std::max( Cog::RealTime::wallTime(), entities_->latestTime() ) );
   } else {
      const std::string path = options_.runtimeDir + "/clock";
      const std::string boot = kernelBootId();
      const std::string kept = content( path );
      const double offset = clockOffset(
         kept, boot, Cog::RealTime::timeSinceBoot(), Cog::RealTime::wallTime(), entities_->latestTime() );
      const std::string text = clockOffsetText( boot, offset );
      if ( text != kept && !writeWhole( path, text ) )
         return path + ": cannot be written";
      world_.time = Vel::make< Cog::RealTime >( offset );
      boot_ = { boot, offset };
   }
   return "";
}

std::string Maintd::makeClock() {
   if ( !world_.time )
      if ( const std::string problem = makeTime(); !problem.empty() )
         return problem;
   loop_ = Vel::make< Cog::EventLoop >( world_.time );
   Vel::System::clockIs( loop_ );
   FastLog::timeFrom( loop_->currentTimeKept() );
   started_ = now();
   wheel_ = Vel::make< Cog::TimerWheel >( loop_, 1000u, 1800u, true, 1024u );
   commits_ = std::make_unique< StoreCommits >( *loop_, wheel_, *persistence_, *fallbackEngine_ );
   loop_->commitHookIs( [this] { return commit(); } );
   signals_ = std::make_unique< Cog::Signals >(
      *loop_, std::initializer_list< int >{ SIGTERM, SIGINT, SIGHUP },
      [this]( const Cog::Signals::Signal & signal ) { handleSignal( signal ); } );
   return "";
}

std::string Maintd::makeSwitch() {
   if ( world_.switch_ ) {
      if ( world_.simulation )
         world_.simulation->schedulerIs( loop_ );
      return "";
   }
   if ( configuration_.switchKind == Config::SwitchKind::linuxKernel ) {
      world_.switch_ = DataPlane::switchNewLinux( loop_ );
      return "";
   }
   // A simulated switch lives as long as the process: the next one has forgotten what this one was asked for.
   const Vel::String bootId = Vel::text( "simulated ", getpid(), " ", now() );
   const auto made = DataPlane::switchNewSimulated( loop_, description( configuration_.simulated, bootId ) );
   if ( !made.outcome.ok() )
      return options_.config + ": simulated: " + made.outcome.text();
   world_.switch_ = made.made;
   world_.simulation = made.simulation;
   return "";
}

} // namespace Apps
