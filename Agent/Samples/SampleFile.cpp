#include "Agent/Samples/SampleFile.h"

#include "Api/Names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace Agent {

namespace {

constexpr std::string_view suffix = ".samples";

} // namespace

/// The file while something is done with it. The first thing that goes wrong is kept, and nothing is done after it.
class SampleFile::Open {
 public:
   Open( int folder, const SampleFile & file, int flags )
      : layout_( file.layout_ ),
        name_( file.fileName_ ),
        // Whatever lies there under the name must not make us wait.
        descriptor_( openat( folder, name_.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644 ) ) {
      if ( descriptor_ < 0 )
         failed( errno );
   }
   ~Open() {
      if ( descriptor_ >= 0 )
         close( descriptor_ );
   }
   Open( const Open & ) = delete;
   Open & operator=( const Open & ) = delete;

   bool ok() const { return problem_.empty(); }
   const std::string & problem() const { return problem_; }
   void failed( int error ) {
      if ( problem_.empty() )
         problem_ = name_ + ": " + std::strerror( error );
   }

   /// Whether it had the size of ours.
   bool hasSize() {
      struct stat status {};
      if ( !ok() || fstat( descriptor_, &status ) != 0 )
         return failed( errno ), false;
      if ( !S_ISREG( status.st_mode ) )
         return failed( EEXIST ), false;
      return status.st_size == static_cast< off_t >( sampleFileSize );
   }
   /// Gives it its size, and room on the disk, so that later writes find it; without room it is taken away again.
   void makeRoom( int folder ) {
      if ( !ok() || fallocate( descriptor_, 0, 0, sampleFileSize ) == 0 )
         return;
      const int error = errno;
      if ( error == EOPNOTSUPP || error == ENOSYS ) {
         if ( ftruncate( descriptor_, sampleFileSize ) != 0 )
            failed( errno );
         return;
      }
      failed( error );
      struct stat status {};
      if ( fstat( descriptor_, &status ) == 0 && status.st_size == 0 )
         unlinkat( folder, name_.c_str(), 0 );
   }
   void cutOff() {
      if ( ok() && ftruncate( descriptor_, sampleFileSize ) != 0 )
         failed( errno );
   }

   /// How much of it is there.
   std::size_t read( void * bytes, std::size_t size, std::size_t offset ) {
      const auto got = ok() ? pread( descriptor_, bytes, size, static_cast< off_t >( offset ) ) : 0;
      if ( got < 0 )
         failed( errno );
      return static_cast< std::size_t >( std::max< ssize_t >( got, 0 ) );
   }
   void write( const void * bytes, std::size_t size, std::size_t offset ) {
      if ( !ok() )
         return;
      const auto written = pwrite( descriptor_, bytes, size, static_cast< off_t >( offset ) );
      if ( written != static_cast< ssize_t >( size ) )
         failed( written < 0 ? errno : ENOSPC );
   }

   static std::size_t offsetOf( const SampleRing & ring, std::size_t place ) {
      return ring.offset + place * sizeof( SampleBlock );
   }
   /// The block of this number, without samples if there is none.
   SampleBlock block( const SampleRing & ring, Vel::U32 number ) {
      SampleBlock found;
      const bool whole = read( &found, sizeof found, offsetOf( ring, number % ring.blocks ) ) == sizeof found;
      if ( whole && found.number == number && layout_.valid( ring, number % ring.blocks, found ) )
         return found;
      SampleBlock fresh;
      fresh.number = number;
      return fresh;
   }
   void blockIs( const SampleRing & ring, SampleBlock & block ) {
      layout_.seal( block );
      write( &block, sizeof block, offsetOf( ring, block.number % ring.blocks ) );
   }
   /// The blocks that are there of those between two numbers, both included, in no order.
   std::vector< SampleBlock > blocks( const SampleRing & ring, Vel::U32 from, Vel::U32 to ) {
      const std::size_t wanted = std::min< std::size_t >( to - from + std::size_t( 1 ), ring.blocks );
      const std::size_t begin = from % ring.blocks;
      // Those that are behind the end of the ring are at its beginning.
      const std::size_t straight = std::min( wanted, ring.blocks - begin );
      std::vector< SampleBlock > valid;
      addBlocks( valid, ring, begin, straight );
      addBlocks( valid, ring, 0, wanted - straight );
      std::erase_if( valid, [&]( const auto & block ) { return block.number < from || block.number > to; } );
      return valid;
   }
   std::vector< SampleBlock > allBlocks( const SampleRing & ring ) {
      return blocks( ring, 0, ~Vel::U32( 0 ) );
   }

 private:
   void addBlocks(
      std::vector< SampleBlock > & to, const SampleRing & ring, std::size_t place, std::size_t count ) {
      std::vector< SampleBlock > found( count );
      found.resize(
         read( found.data(), count * sizeof( SampleBlock ), offsetOf( ring, place ) ) /
         sizeof( SampleBlock ) );
      for ( const SampleBlock & block : found )
         if ( layout_.valid( ring, place++, block ) )
            to.push_back( block );
   }

   const SampleLayout & layout_;
   const std::string & name_;
   const int descriptor_;
   std::string problem_;
};

SampleFile::SampleFile( std::string interface )
   : interface_( std::move( interface ) ), fileName_( fileName( interface_ ) ), layout_( interface_ ) {}

std::string SampleFile::fileName( const std::string & interface ) {
   return Api::escaped( interface ) + std::string( suffix );
}

std::optional< std::string > SampleFile::interfaceOf( const std::string & fileName ) {
   if ( !fileName.ends_with( suffix ) )
      return std::nullopt;
   std::string name;
   for ( std::size_t i = 0; i < fileName.size() - suffix.size(); ++i )
      if ( fileName[i] == '%' && i + 2 < fileName.size() ) {
         name += static_cast< char >( std::strtol( fileName.substr( i + 1, 2 ).c_str(), nullptr, 16 ) );
         i += 2;
      } else {
         name += fileName[i];
      }
   return SampleFile::fileName( name ) == fileName ? std::optional( name ) : std::nullopt;
}

// ---- writing

void SampleFile::add( Vel::U64 step, const Sample & sample ) {
   if ( step <= lastStep_ )
      return;
   lastStep_ = step;
   if ( waiting_.size() == longestWait )
      waiting_.erase( waiting_.begin() );
   waiting_.push_back( { step, sample } );
}

std::string SampleFile::write( int folder, Vel::U64 before ) {
   if ( !waits( before ) )
      return "";
   Open file( folder, *this, O_RDWR | O_CREAT );
   prepare( folder, file );
   std::size_t done = 0;
   while ( done < waiting_.size() && waiting_[done].step < before && put( file, waiting_[done] ) )
      ++done;
   waiting_.erase( waiting_.begin(), waiting_.begin() + static_cast< std::ptrdiff_t >( done ) );
   flush( file, minuteRing, minute_ );
   flush( file, fineRing, fine_ );
   return file.problem();
}

std::string SampleFile::finish( int folder ) {
   if ( !fine_.loaded )
      return "";
   Open file( folder, *this, O_RDWR );
   putMinute( file, fine_.block );
   flush( file, minuteRing, minute_ );
   flush( file, fineRing, fine_ );
   return file.problem();
}

/// A file that is new, or that somebody has cut off or replaced since, becomes one of ours again.
void SampleFile::prepare( int folder, Open & file ) {
   const bool whole = file.hasSize();
   if ( whole && prepared_ )
      return;
   if ( !whole ) {
      file.makeRoom( folder );
      file.cutOff();
   }
   SampleLayout::Header found{};
   file.read( found.data(), found.size(), 0 );
   if ( found != layout_.header() )
      file.write( layout_.header().data(), layout_.header().size(), 0 );
   if ( !std::exchange( prepared_, file.ok() ) )
      finishLastMinute( file );
}

/// The one in which an earlier process has ended. What waits and is older comes from where that one has kept it; it must
/// not take the place of what has been written since.
void SampleFile::finishLastMinute( Open & file ) {
   const auto blocks = file.allBlocks( fineRing );
   Vel::U32 newest = 0;
   for ( const SampleBlock & block : blocks )
      newest = std::max( newest, block.number );
   std::erase_if( waiting_, [newest]( const Waiting & waiting ) {
      return fineRing.blockOf( waiting.step ) + 1 < newest;
   } );
   const Vel::U32 present = fineRing.blockOf( waiting_.empty() ? lastStep_ : waiting_.front().step );
   SampleBlock last;
   for ( const SampleBlock & block : blocks )
      if ( block.number < present && block.number > last.number )
         last = block;
   if ( last.number > 0 )
      putMinute( file, last );
}

bool SampleFile::put( Open & file, const Waiting & waiting ) {
   const Vel::U32 number = fineRing.blockOf( waiting.step );
   if ( fine_.loaded && fine_.block.number != number )
      putMinute( file, fine_.block );
   if ( !turnTo( file, fineRing, fine_, number ) )
      return false;
   fine_.block.samples[waiting.step % fineRing.samplesPerBlock] = waiting.sample;
   fine_.dirty = true;
   return true;
}

/// `minute`: its samples.
void SampleFile::putMinute( Open & file, const SampleBlock & minute ) {
   if ( !turnTo( file, minuteRing, minute_, minuteRing.blockOf( minute.number ) ) )
      return;
   minute_.block.samples[minute.number % minuteRing.samplesPerBlock] = minute.mean();
   minute_.dirty = true;
}

bool SampleFile::turnTo( Open & file, const SampleRing & ring, Cursor & cursor, Vel::U32 number ) {
   if ( cursor.loaded && cursor.block.number == number )
      return true;
   flush( file, ring, cursor );
   SampleBlock block;
   block.number = number;
   // Nobody else writes it: what follows a block of ours is not there yet.
   if ( !cursor.loaded || number != cursor.block.number + 1 )
      block = file.block( ring, number );
   if ( !file.ok() )
      return false;
   cursor = { block, true, false };
   return true;
}

void SampleFile::flush( Open & file, const SampleRing & ring, Cursor & cursor ) {
   if ( !cursor.dirty )
      return;
   file.blockIs( ring, cursor.block );
   cursor.dirty = !file.ok();
}

// ---- reading

namespace {

/// Puts what is known of a block where it belongs in a range that begins with a step.
void spread( const SampleRing & ring, const SampleBlock & block, Vel::U64 first, std::span< Sample > out ) {
   const Vel::U64 begin = Vel::U64( block.number ) * ring.samplesPerBlock;
   for ( unsigned i = 0; i < ring.samplesPerBlock; ++i )
      if ( begin + i >= first && begin + i - first < out.size() && block.samples[i].known() )
         out[begin + i - first] = block.samples[i];
}

} // namespace

void SampleFile::read( int folder, const SampleRing & ring, Vel::U64 first, std::span< Sample > out ) const {
   std::fill( out.begin(), out.end(), Sample() );
   if ( out.empty() )
      return;
   Open file( folder, *this, O_RDONLY );
   const Vel::U64 last = first + out.size() - 1;
   for ( const SampleBlock & block : file.blocks( ring, ring.blockOf( first ), ring.blockOf( last ) ) )
      spread( ring, block, first, out );
   if ( ring.step == fineRing.step ) {
      for ( const SampleBlock & minute : minutesInMemory() )
         spread( ring, minute, first, out );
      return;
   }
   if ( minute_.dirty )
      spread( ring, minute_.block, first, out );
   for ( const SampleBlock & minute : minutesInMemory() ) {
      SampleBlock mean;
      mean.number = ring.blockOf( minute.number );
      mean.samples[minute.number % ring.samplesPerBlock] = minute.mean();
      spread( ring, mean, first, out );
   }
}

/// The minutes of which there may be something that the file does not have, in the order of time.
std::vector< SampleBlock > SampleFile::minutesInMemory() const {
   std::vector< SampleBlock > minutes;
   if ( fine_.loaded )
      minutes.push_back( fine_.block );
   for ( const Waiting & waiting : waiting_ ) {
      const Vel::U32 number = fineRing.blockOf( waiting.step );
      if ( minutes.empty() || minutes.back().number != number )
         minutes.emplace_back().number = number;
      minutes.back().samples[waiting.step % fineRing.samplesPerBlock] = waiting.sample;
   }
   return minutes;
}

std::optional< Vel::U64 > SampleFile::newest( int folder ) const {
   Open file( folder, *this, O_RDONLY );
   std::optional< Vel::U64 > result;
   for ( const SampleBlock & block : file.allBlocks( fineRing ) )
      result = std::max( result.value_or( 0 ), ( Vel::U64( block.number ) + 1 ) * fineRing.samplesPerBlock );
   for ( const SampleBlock & block : file.allBlocks( minuteRing ) )
      result = std::max(
         result.value_or( 0 ),
         ( Vel::U64( block.number ) + 1 ) * minuteRing.samplesPerBlock * fineRing.samplesPerBlock );
   return result;
}

} // namespace Agent
