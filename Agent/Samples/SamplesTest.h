#pragma once

#include "Agent/Samples/Samples.h"
#include "Agent/Samples/SamplesRig.h"
#include "Platform/Cog/ManualClock.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

/// Purpose: agents that sample one after the other, over one folder and in virtual time.
namespace Agent {

/// Agents one after the other in one folder. A port carries its rate in and half of it out.
class SamplesTest : public testing::Test, protected SamplesRig {
 protected:
   ~SamplesTest() override {
      std::error_code ignored;
      std::filesystem::remove_all( path, ignored );
   }

   void portIs( const Wire::IntfId & port, double bps ) {
      intfIs( port );
      bpsOf[port] = bps;
   }
   void portIsGone( const Wire::IntfId & port ) {
      bpsOf.erase( port );
      intfToGroupDir->intfToGroupDel( port );
      statusDir->intfStatusDel( port );
   }
   void start() {
      samples = std::make_unique< Samples >(
         clock, Vel::make< Cog::TimerWheel >( Vel::Ptr< Vel::Clock >( clock ), 1000u, 60u, true, 16u ),
         model(), path + "/samples",
         Samples::Hooks{
            [this] { return count(); }, [this]( double time ) { return time + wallAhead; }, clockName } );
      bornAt = clock->currentTime();
   }
   /// The agent is gone at once.
   void stop() { samples.reset(); }
   /// The machine is started again; the clock begins at a time of its own.
   void reboot( double time ) {
      stop();
      clock = Vel::make< Cog::ManualClock >( time );
      clockName += "'";
   }
   /// Time goes by in one turn, and then a minute as it should.
   void goOn( double seconds ) {
      clock->spend( seconds );
      clock->runTurn();
      clock->advance( 60 );
   }
   double now() const { return clock->currentTime(); }

   /// The last steps of a curve: "8000/4000 - 8000/4000".
   std::string last( const std::string & name, unsigned steps, unsigned step = 5 ) const {
      const double length = step == 5 ? steps * 5 : std::max( 3700u, steps * 60 );
      const SampleCurve curve = samples->curve( name, now() - length, now() );
      EXPECT_EQ( step, curve.step );
      EXPECT_EQ( curve.in.size(), curve.out.size() );
      EXPECT_LE( steps, curve.in.size() );
      std::string result;
      for ( std::size_t i = curve.in.size() - std::min< std::size_t >( steps, curve.in.size() );
            i < curve.in.size(); ++i )
         result +=
            ( result.empty() ? "" : " " ) +
            ( std::isnan( curve.in[i] ) ? "-" : std::string( Vel::text( curve.in[i], "/", curve.out[i] ) ) );
      return result;
   }
   std::string problem() const { return samples->problem() ? samples->problem()->text : ""; }
   bool exists( const std::string & name ) const {
      return std::filesystem::exists( path + "/samples/" + name );
   }

   const Wire::EthIntfId et1{ "et1" }, et2{ "et2" };
   Vel::Ptr< Cog::ManualClock > clock = Vel::make< Cog::ManualClock >( 1'700'000'100.0 );
   std::string path = newFolder();
   std::map< Wire::IntfId, double > bpsOf;
   std::unique_ptr< Samples > samples;
   std::string clockName = "boot";
   double wallAhead = 0;
   double bornAt = 0;
   bool fresh = true;

 private:
   static std::string newFolder() {
      std::string name = std::filesystem::temp_directory_path() / "samplesXXXXXX";
      EXPECT_NE( nullptr, mkdtemp( name.data() ) );
      return name;
   }
   bool count() {
      for ( const auto & [port, bps] : fresh ? bpsOf : std::map< Wire::IntfId, double >() ) {
         const double octets = bps / 8 * ( now() - 1.6e9 );
         countsAre( port, static_cast< Vel::U64 >( octets ), static_cast< Vel::U64 >( octets / 2 ) );
      }
      return fresh;
   }
};

} // namespace Agent
