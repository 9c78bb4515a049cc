#pragma once

#include "Agent/Samples/SampleFile.h"
#include "Agent/Samples/SampleFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

/// Purpose: files of samples in a folder of the test, in which each sample is known by its step.
namespace Agent {

class SampleFileTest : public testing::Test {
 protected:
   SampleFileTest() { EXPECT_EQ( "", folder.open() ); }
   ~SampleFileTest() override {
      std::error_code ignored;
      std::filesystem::remove_all( path, ignored );
   }

   static Sample sampleOf( Vel::U64 step ) {
      return { static_cast< float >( step % 100003 ), static_cast< float >( step % 99991 * 1000 ) };
   }
   /// Samples of steps that follow each other, by a process of its own.
   void fill( Vel::U64 begin, Vel::U64 steps ) {
      SampleFile file( "et1" );
      for ( Vel::U64 step = begin; step < begin + steps; ++step ) {
         file.add( step, sampleOf( step ) );
         if ( ( step - begin ) % 12 == 11 || step + 1 == begin + steps ) {
            ASSERT_EQ( "", file.write( folder.descriptor() ) );
         }
      }
   }

   /// Which samples of a range there are, counted from its first: "0 2". Each has to be the one that was added; those of
   /// minutes are means, and are compared only if they are whole minutes or `partial` is not set.
   std::string known(
      const SampleFile & file, const SampleRing & ring, Vel::U64 begin, std::size_t size,
      bool partial = false ) const {
      std::vector< Sample > samples( size );
      file.read( folder.descriptor(), ring, begin, samples );
      std::string result;
      for ( std::size_t i = 0; i < size; ++i )
         if ( samples[i].known() ) {
            result += ( result.empty() ? "" : " " ) + std::to_string( i );
            if ( !partial )
               compare( ring, begin + i, samples[i] );
         }
      return result;
   }
   std::size_t
   count( const SampleFile & file, const SampleRing & ring, Vel::U64 begin, std::size_t size ) const {
      const std::string text = known( file, ring, begin, size );
      return text.empty() ? 0 : static_cast< std::size_t >( std::count( text.begin(), text.end(), ' ' ) ) + 1;
   }

   std::string bytes( const std::string & name ) const {
      std::ostringstream text;
      text << std::ifstream( path + "/" + name, std::ios::binary ).rdbuf();
      return text.str();
   }
   void bytesAre( const std::string & name, const std::string & text ) const {
      // The file stays the same one: on some file systems, to replace the content of one waits for the disk.
      const std::string file = path + "/" + name;
      std::ofstream( file, std::ios::app );
      std::fstream( file, std::ios::binary | std::ios::in | std::ios::out ) << text;
      std::filesystem::resize_file( file, text.size() );
   }
   std::size_t size( const std::string & name ) const {
      return std::filesystem::file_size( path + "/" + name );
   }

   /// The first step of a minute and of a block of minutes, in our days.
   static constexpr Vel::U64 first = 1'700'000'100 / 5;
   static constexpr Vel::U64 weekOfSteps = 7 * 86400 / 5;
   const std::string path = newFolder();
   SampleFolder folder{ path };

 private:
   static std::string newFolder() {
      std::string name = std::filesystem::temp_directory_path() / "samplesXXXXXX";
      EXPECT_NE( nullptr, mkdtemp( name.data() ) );
      return name;
   }
   static void compare( const SampleRing & ring, Vel::U64 step, const Sample & sample ) {
      Sample added = sampleOf( step );
      if ( ring.step == minuteRing.step ) {
         SampleBlock minute;
         for ( unsigned i = 0; i < 12; ++i )
            minute.samples[i] = sampleOf( step * 12 + i );
         added = minute.mean();
      }
      ASSERT_EQ( added.in, sample.in ) << step;
      ASSERT_EQ( added.out, sample.out ) << step;
   }
};

} // namespace Agent
