// The files of the state and runtime folders besides the stores: whatever they hold, they are taken or left, and what is
// written into them then is found again.

#include "Agent/History/RecordJson.h"
#include "Agent/Samples/SampleFile.h"
#include "Agent/Samples/SampleFolder.h"
#include "Agent/Samples/SampleJournal.h"
#include "Agent/Samples/SampleTime.h"
#include "Apps/ClockOffset.h"
#include "Fuzz/Input.h"
#include "Fuzz/Mutation.h"

#include <cmath>
#include <filesystem>
#include <fstream>

namespace {

using namespace Agent;
using Fuzz::require;

/// The folder; the files of one input replace those of the one before. The fuzzer ends without cleaning up: whoever runs it
/// gives it a place for temporary files that goes with it.
class Folder {
 public:
   Folder() {
      std::string name = ( std::filesystem::temp_directory_path() / "fuzz-XXXXXX" ).string();
      require( mkdtemp( name.data() ) != nullptr, "there is a folder" );
      path_ = name;
      folder_ = std::make_unique< SampleFolder >( path_ );
      require( folder_->open().empty(), "which can be opened" );
   }
   ~Folder() { std::filesystem::remove_all( path_ ); }
   Folder( const Folder & ) = delete;
   Folder & operator=( const Folder & ) = delete;

   int descriptor() const { return folder_->descriptor(); }
   void fileIs( const std::string & name, std::string_view content ) const {
      std::ofstream( path_ + "/" + name, std::ios::trunc ) << content;
   }

 private:
   std::string path_;
   std::unique_ptr< SampleFolder > folder_;
};

/// Checksums keep what is changed at random from being looked at; so mostly they are made right.
std::string withRightBlocks( std::string content, const std::string & interface ) {
   const SampleLayout layout( interface );
   for ( std::size_t at = sizeof( SampleBlock ); at + sizeof( SampleBlock ) <= content.size();
         at += sizeof( SampleBlock ) ) {
      SampleBlock block;
      std::memcpy( &block, content.data() + at, sizeof block );
      layout.seal( block );
      std::memcpy( content.data() + at, &block, sizeof block );
   }
   return content;
}

/// The same for the records of a journal, which begin with checksum, kind, number and count; each ends where its count
/// says.
std::string withRightRecords( std::string content ) {
   constexpr std::size_t headSize = 24, nameSize = 32;
   constexpr Vel::U32 namesKind = 0x4e616d31;
   Vel::U32 names = 0;
   for ( std::size_t at = 0; at + headSize <= content.size(); ) {
      Vel::U32 kind, count;
      std::memcpy( &kind, content.data() + at + 4, sizeof kind );
      std::memcpy( &count, content.data() + at + 16, sizeof count );
      const bool isNames = kind == namesKind;
      const std::size_t size = headSize + std::size_t( count ) * ( isNames ? nameSize : sizeof( Sample ) );
      if ( size > content.size() - at )
         break;
      const Vel::U32 check =
         sampleChecksum( isNames ? 0 : names, content.data() + at + sizeof check, size - sizeof check );
      std::memcpy( content.data() + at, &check, sizeof check );
      if ( isNames )
         names = check;
      at += size;
   }
   return content;
}

void readSamplesOfInterface( const Folder & folder, Fuzz::Input input ) {
   const std::string interface = "et1";
   const bool right = input.byte() % 4 != 0;
   const Vel::U64 earlier = input.number16();
   const std::string content( input.rest() );
   folder.fileIs(
      SampleFile::fileName( interface ), right ? withRightBlocks( content, interface ) : content );
   SampleFile file( interface );
   std::vector< Sample > before( 700 ), after( 700 );
   const auto newest = file.newest( folder.descriptor() );
   // Where there are some, be they as old as the ring or yet to come.
   const Vel::U64 first = newest.value_or( 0 ) - std::min( newest.value_or( 0 ), earlier );
   for ( const SampleRing & ring : { fineRing, minuteRing } )
      file.read( folder.descriptor(), ring, first, before );
   file.read( folder.descriptor(), fineRing, first, before );
   // A sample that is later than all there is.
   const Vel::U64 step = std::max( newest.value_or( 0 ), first + before.size() ) + 1;
   if ( step / fineRing.samplesPerBlock > 0xffffffffu )
      return;
   file.add( step, { 1000, 2000 } );
   require( file.write( folder.descriptor() ).empty(), "is written" );
   require( file.finish( folder.descriptor() ).empty(), "and finished" );
   SampleFile next( interface );
   std::vector< Sample > last( 1 );
   next.read( folder.descriptor(), fineRing, step, last );
   require( last[0].in == 1000 && last[0].out == 2000, "what was written is there" );
   require( next.newest( folder.descriptor() ).value_or( 0 ) >= step, "as the newest" );
}

void readJournal( const Folder & folder, Fuzz::Input input ) {
   const bool right = input.byte() % 4 != 0;
   for ( const char * const name : SampleJournal::fileNames ) {
      const std::string content( input.sized() );
      folder.fileIs( name, right ? withRightRecords( content ) : content );
   }
   SampleJournal journal;
   Vel::U64 last = 0;
   journal.read( folder.descriptor(), [&]( std::string_view name, const SampleJournal::Steps & samples ) {
      require( name.size() <= 32, "names have an end" );
      for ( const auto & [step, sample] : samples )
         last = std::max( last, step );
   } );
   if ( last > 0xfffffffffull )
      return;
   // A process of ours begins long after the beginning of time.
   const Vel::U64 step = std::max( last, Vel::U64( 1'000'000 ) ) + 1;
   const SampleSource::Rates rates{ { Wire::EthIntfId( "et1" ), { .outBitsRate = 8, .inBitsRate = 7 } } };
   require( journal.add( folder.descriptor(), step, rates ).empty(), "is added" );
   bool found = false;
   SampleJournal().read(
      folder.descriptor(), [&]( std::string_view name, const SampleJournal::Steps & samples ) {
         for ( const auto & [at, sample] : samples )
            found = found || ( name == "et1" && at == step && sample.in == 7 && sample.out == 8 );
      } );
   require( found, "what was added is there" );
}

void readTimeOfSamples( Fuzz::Input input ) {
   const std::string text( input.rest() );
   const auto kept = SampleTime::parse( text );
   if ( !kept )
      return;
   const auto again = SampleTime::parse( kept->text() );
   require( again && again->clock == kept->clock && again->base == kept->base, "is written as it was", text );
   const SampleTime now = SampleTime::begin( kept, "another clock", 100, 1.7e9, 0 );
   require( std::isfinite( now.base ), "there is a time", text );
   require( now.now() + SampleTime::noteMargin >= kept->now(), "which does not go back", text );
}

void readSummary( Fuzz::Input input ) {
   const std::string text( input.rest() );
   if ( const auto summary = summaryOf( text ) )
      require( !summariesText( { summary } ).empty(), "is told" );
}

void readOffsetOfClock( Fuzz::Input input ) {
   const std::string text( input.rest() );
   const double offset = Apps::clockOffset( text, "3f1d", 1000, 1.7e9, 0 );
   require( std::isfinite( offset ), "there is an offset", text );
   const std::string written = Apps::clockOffsetText( "3f1d", offset );
   const double again = Apps::clockOffset( written, "3f1d", 2000, 1.8e9, 0 );
   require( again == offset, "which holds for the boot", written );
}

void readName( Fuzz::Input input ) {
   const std::string name( input.rest() );
   const std::string file = SampleFile::fileName( name );
   require( file.find( '/' ) == file.npos, "a name of a file", file );
   require( name.empty() || SampleFile::interfaceOf( file ) == name, "of this interface", file );
   SampleFile::interfaceOf( name );
}

/// What an input is, in its first byte; the seeds are made with these numbers.
enum class What : unsigned { samples, journal, time, summary, offset, name };
constexpr unsigned whatCount = 6;

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   static const Folder folder;
   Fuzz::Input input( data, size );
   switch ( static_cast< What >( input.byte() % whatCount ) ) {
   case What::samples:
      readSamplesOfInterface( folder, input );
      break;
   case What::journal:
      readJournal( folder, input );
      break;
   case What::time:
      readTimeOfSamples( input );
      break;
   case What::summary:
      readSummary( input );
      break;
   case What::offset:
      readOffsetOfClock( input );
      break;
   case What::name:
      readName( input );
      break;
   }
   return 0;
}

extern "C" std::size_t
LLVMFuzzerCustomMutator( std::uint8_t * data, std::size_t size, std::size_t most, unsigned seed ) {
   Fuzz::Dice dice( seed );
   return Fuzz::changed( data, size, data, most, [&]( std::string & input ) {
      const auto what = static_cast< What >( Fuzz::Input( data, size ).byte() % whatCount );
      if ( size == 0 || dice.oneIn( 4 ) )
         return Fuzz::changeAnything( input, most );
      std::string rest = input.substr( 1 );
      if ( what == What::summary )
         Fuzz::changeText( rest, Fuzz::json, dice );
      else if ( what == What::samples || what == What::journal )
         Fuzz::changeNumber( rest, dice );
      else
         Fuzz::changeText( rest, Fuzz::blanks, dice );
      input.replace( 1, input.npos, rest );
   } );
}
