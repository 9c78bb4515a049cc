#include "Agent/Samples/SampleJournal.h"

#include "Agent/Samples/SampleFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Agent {

namespace {

/// What stands before the names or the samples of a record, in the byte order of the machine.
struct Head {
   Vel::U32 check = 0; ///< of all that follows
   Vel::U32 kind = 0;
   Vel::U64 number = 0; ///< of the minute, or of the step
   Vel::U32 count = 0;
   Vel::U32 unused = 0;
};
static_assert( sizeof( Head ) == 24 );
/// The bytes of a machine of another order give another kind.
constexpr Vel::U32 namesKind = 0x4e616d31, columnKind = 0x436f6c31;

struct Name {
   char text[32] = {};
};
static_assert( Wire::IntfId::maxName < sizeof( Name ) );

std::size_t sizeOf( const Head & head ) {
   return std::size_t( head.count ) * ( head.kind == namesKind ? sizeof( Name ) : sizeof( Sample ) );
}

Vel::U32 checkOf( Vel::U32 seed, const char * record, std::size_t size ) {
   return sampleChecksum( seed, record + sizeof Head::check, size - sizeof Head::check );
}

} // namespace

/// What a file holds: the place of each record in its text.
struct SampleJournal::Found {
   File file;
   std::string text;
   std::vector< std::size_t > records;
};

SampleJournal::Found SampleJournal::parse( std::string content, std::size_t place ) {
   Found found{ {}, std::move( content ), {} };
   const std::string & text = found.text;
   Head head;
   Vel::U32 names = 0;
   std::size_t namesCount = 0;
   for ( std::size_t at = 0; at + sizeof head <= text.size(); at = found.file.size ) {
      std::memcpy( &head, text.data() + at, sizeof head );
      const bool isNames = head.kind == namesKind;
      if ( ( !isNames && head.kind != columnKind ) || sizeOf( head ) > text.size() - at - sizeof head )
         break;
      const std::size_t size = sizeof head + sizeOf( head );
      const Vel::U32 check = checkOf( isNames ? 0 : names, text.data() + at, size );
      const Vel::U64 minute = isNames ? head.number : head.number / fineRing.samplesPerBlock;
      const bool first = at == 0;
      if (
         head.check != check || minute % 2 != place || ( first ? !isNames : minute != found.file.minute ) ||
         ( !isNames && head.count != namesCount ) )
         break;
      if ( isNames ) {
         names = check;
         namesCount = head.count;
      }
      found.file = { static_cast< Vel::U32 >( minute ), at + size };
      found.records.push_back( at );
   }
   return found;
}

void SampleJournal::read( int folder, const Take & take ) {
   std::array< Found, 2 > all;
   for ( std::size_t place = 0; place < all.size(); ++place ) {
      all[place] = parse( SampleFolder::contentOf( folder, fileNames[place] ).value_or( "" ), place );
      files_[place] = all[place].file;
   }
   if ( all[1].file.minute < all[0].file.minute )
      std::swap( all[0], all[1] );
   for ( const Found & found : all )
      takeAll( found, take );
}

void SampleJournal::takeAll( const Found & found, const Take & take ) {
   const auto headAt = [&]( std::size_t record ) {
      Head head;
      std::memcpy( &head, found.text.data() + found.records[record], sizeof head );
      return head;
   };
   Steps steps;
   for ( std::size_t names = 0, next = 0; names < found.records.size(); names = next ) {
      for ( next = names + 1; next < found.records.size() && headAt( next ).kind == columnKind; )
         ++next;
      for ( std::size_t i = 0; i < headAt( names ).count; ++i ) {
         steps.clear();
         for ( std::size_t column = names + 1; column < next; ++column ) {
            Sample sample;
            const char * const samples = found.text.data() + found.records[column] + sizeof( Head );
            std::memcpy( &sample, samples + i * sizeof sample, sizeof sample );
            steps.emplace_back( headAt( column ).number, sample );
         }
         const char * const name =
            found.text.data() + found.records[names] + sizeof( Head ) + i * sizeof( Name );
         take( { name, strnlen( name, sizeof( Name ) ) }, steps );
      }
   }
}

std::string SampleJournal::add( int folder, Vel::U64 step, const Rates & rates ) {
   const Vel::U32 minute = fineRing.blockOf( step );
   const std::size_t place = minute % 2;
   File & file = files_[place];
   if ( file.minute != minute ) {
      file = { minute, 0 };
      named_ = false;
   }
   const int descriptor =
      openat( folder, fileNames[place], O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644 );
   int error = descriptor < 0 ? errno : 0;
   struct stat status {};
   if ( !error && fstat( descriptor, &status ) != 0 )
      error = errno;
   if ( !error && !S_ISREG( status.st_mode ) )
      error = EEXIST;
   if ( !error ) {
      // One that somebody has removed or cut off begins anew.
      if ( status.st_size < static_cast< off_t >( file.size ) ) {
         file.size = 0;
         named_ = false;
      }
      error = write( descriptor, file, step, rates );
   }
   if ( descriptor >= 0 )
      close( descriptor );
   return error ? std::string( fileNames[place] ) + ": " + std::strerror( error ) : "";
}

/// In place, so that the room is there. Gives the error's number, 0 for none.
int SampleJournal::write( int descriptor, File & file, Vel::U64 step, const Rates & rates ) {
   text_.clear();
   if ( !named_ || !hasNamesOf( rates ) )
      addNames( rates, file.minute );
   addColumn( rates, step );
   const auto place = static_cast< off_t >( file.size );
   const ssize_t written = pwrite( descriptor, text_.data(), text_.size(), place );
   // What is there of a write that was cut off has no names that the next column could be of.
   named_ = written == static_cast< ssize_t >( text_.size() );
   if ( named_ )
      file.size += text_.size();
   return named_ ? 0 : written < 0 ? errno : ENOSPC;
}

bool SampleJournal::hasNamesOf( const Rates & rates ) const {
   return std::equal(
      rates.begin(), rates.end(), names_.begin(), names_.end(),
      []( const auto & rate, const Wire::IntfId & name ) { return rate.first == name; } );
}

void SampleJournal::addNames( const Rates & rates, Vel::U32 minute ) {
   const Head head{ 0, namesKind, minute, static_cast< Vel::U32 >( rates.size() ) };
   text_.reserve( sizeof head * 2 + rates.size() * ( sizeof( Name ) + sizeof( Sample ) ) );
   text_.append( reinterpret_cast< const char * >( &head ), sizeof head );
   names_.clear();
   for ( const auto & [intf, rate] : rates ) {
      names_.push_back( intf );
      Name name;
      std::memcpy( name.text, intf.name().data(), intf.name().size() );
      text_.append( name.text, sizeof name );
   }
   check_ = checkOf( 0, text_.data(), text_.size() );
   std::memcpy( text_.data(), &check_, sizeof check_ );
}

void SampleJournal::addColumn( const Rates & rates, Vel::U64 step ) {
   const std::size_t begin = text_.size();
   const Head head{ 0, columnKind, step, static_cast< Vel::U32 >( rates.size() ) };
   text_.append( reinterpret_cast< const char * >( &head ), sizeof head );
   for ( const auto & [intf, rate] : rates ) {
      const Sample sample{
         static_cast< float >( rate.inBitsRate ), static_cast< float >( rate.outBitsRate ) };
      text_.append( reinterpret_cast< const char * >( &sample ), sizeof sample );
   }
   const Vel::U32 check = checkOf( check_, text_.data() + begin, text_.size() - begin );
   std::memcpy( text_.data() + begin, &check, sizeof check );
}

} // namespace Agent
