#pragma once

#include "Apps/Maintd.h"
#include "Bench/Folder.h"
#include "Platform/Cog/TimeSource.h"

#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

/// Purpose: the whole agent in this process, in virtual time, over the kernel's links or simulated ones.
namespace Bench {

/// `et0, et1, ...`
inline std::string linkNames( int count ) {
   std::string result;
   for ( int i = 0; i < count; ++i )
      result += ( i ? ", et" : "et" ) + std::to_string( i );
   return result;
}

/// A configuration with links et0, et1, ... in a unit u, which they keep entering for ever.
inline std::string configuration( int links, const std::string & switchKind ) {
   std::string result = "version: 1\nswitch: " + switchKind +
                        "\nprofiles: {p: {threshold: 1bps, load-interval: 720h}}\ndefault-profile: p\n"
                        "groups:\n  all: {interfaces: [" +
                        linkNames( links ) + "]}\nunits:\n  u: {groups: [all]}\n";
   if ( switchKind == "simulated" ) {
      result += "simulated:\n  clock: virtual\n  ports:\n";
      for ( int i = 0; i < links; ++i )
         result += "    et" + std::to_string( i ) +
                   ": {traffic: [{for: 1s, in: " + std::to_string( 100 + i ) + "kbps, out: 5Mbps}]}\n";
   }
   return result;
}

class WholeAgent {
 public:
   explicit WholeAgent( const std::string & configuration )
      : time_( Vel::make< Cog::VirtualTime >( 1.7e9 ) ) {
      Apps::MaintdOptions options;
      options.config = folder_.path + "/maintd.yaml";
      options.stateDir = folder_.path + "/state";
      options.runtimeDir = folder_.path + "/run";
      options.pluginDir = MAINT_BENCH_PLUGIN_DIR;
      std::ofstream( options.config ) << configuration;
      Apps::MaintdWorld world;
      world.time = time_;
      agent_ = std::make_unique< Apps::Maintd >( options, world );
      if ( const std::string problem = agent_->start(); !problem.empty() )
         throw std::runtime_error( problem );
      time_->reachedIs( [this] { agent_->loop().stop(); } );
      advance( 1 );
   }
   WholeAgent( const WholeAgent & ) = delete;
   WholeAgent & operator=( const WholeAgent & ) = delete;

   void advance( double seconds ) {
      time_->targetIs( time_->target() + seconds );
      agent_->loop().run();
   }
   /// Puts unit u into maintenance.
   void enter() {
      agent_->loop().post( [this] { ask( "POST", "units/u/enter" ); } );
      advance( 1 );
   }
   /// What the control API answers; empty if it has to commit first. Nothing in the path is escaped.
   std::string ask( const char * method, const std::string & path ) {
      Agent::HttpRequest request;
      request.method = method;
      request.path = "/api/v1/" + path.substr( 0, path.find( '?' ) );
      for ( std::size_t at = path.find( '?' ); at != std::string::npos; ) {
         const std::size_t end = path.find( '&', at + 1 ), equals = path.find( '=', at );
         request.query.emplace(
            path.substr( at + 1, equals - at - 1 ), path.substr( equals + 1, end - equals - 1 ) );
         at = end;
      }
      request.local = true;
      const auto body = std::make_shared< std::string >();
      agent_->api().handle( request, [body]( const Agent::HttpReply & reply ) { *body = reply.body; } );
      // Some answers take some turns.
      if ( body->empty() && request.method == "GET" )
         advance( 0 );
      return *body;
   }

 private:
   const Folder folder_;
   Vel::Ptr< Cog::VirtualTime > time_;
   std::unique_ptr< Apps::Maintd > agent_;
};

} // namespace Bench
