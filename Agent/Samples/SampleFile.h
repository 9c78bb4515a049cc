#pragma once

#include "Agent/Samples/SampleBlocks.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

/// Purpose: the samples of one interface, of the last hour and of the last week, in a file of fixed size.
/// Owner: the samples; or whoever wants to read the file of an interface that is not sampled.
///
/// Invariants:
/// 1. What write() has written is there after any end of the process. A sample that is not in the file yet is in memory,
///    up to `longestWait` of them, and read as if it were.
/// 2. Whatever the file holds, be it cut off, overwritten or nothing of ours, reading gives samples that were added or
///    none; writing mends the file and keeps the blocks that are whole.
/// 3. A minute is the mean of its known samples. It is written when a sample of a later one is, also by a later process.
///
/// No descriptor is kept: there may be thousands of interfaces. Nothing is synced: what the system loses when it stops is
/// a gap.
namespace Agent {

class SampleFile {
 public:
   /// Samples that wait for the file to be written: two minutes.
   static constexpr std::size_t longestWait = 24;
   /// Behind all steps.
   static constexpr Vel::U64 end = ~Vel::U64( 0 );

   explicit SampleFile( std::string interface );

   /// The file's name in the folder: one for each name of an interface, whatever its bytes.
   static std::string fileName( const std::string & interface );
   /// The interface of a file name; nothing if it is none of ours.
   static std::optional< std::string > interfaceOf( const std::string & fileName );

   /// The sample of a step of 5 s, later than all that were added before.
   void add( Vel::U64 step, const Sample & sample );
   /// Whether something of the time before a step waits to be written.
   bool waits( Vel::U64 before = end ) const {
      return ( !waiting_.empty() && waiting_.front().step < before ) || fine_.dirty || minute_.dirty;
   }
   /// The last that was added; 0: none.
   Vel::U64 lastStep() const { return lastStep_; }

   /// Writes what waits of the time before a step. Gives what went wrong, for the operator; what was not written waits for
   /// the next time.
   std::string write( int folder, Vel::U64 before = end );
   /// Writes the minute that is going on, for there will be no more samples for now.
   std::string finish( int folder );

   /// The samples from `first` on, in steps of the ring, into `out`. Reads the blocks of these and no more.
   void read( int folder, const SampleRing & ring, Vel::U64 first, std::span< Sample > out ) const;
   /// A step of 5 s behind all of which the file holds samples, at most a quarter of an hour; nothing: it holds none.
   std::optional< Vel::U64 > newest( int folder ) const;

 private:
   /// The block of a ring that is being filled.
   struct Cursor {
      SampleBlock block;
      bool loaded = false;
      bool dirty = false;
   };
   struct Waiting {
      Vel::U64 step;
      Sample sample;
   };
   class Open;

   void prepare( int folder, Open & file );
   void finishLastMinute( Open & file );
   bool put( Open & file, const Waiting & waiting );
   void putMinute( Open & file, const SampleBlock & minute );
   bool turnTo( Open & file, const SampleRing & ring, Cursor & cursor, Vel::U32 number );
   void flush( Open & file, const SampleRing & ring, Cursor & cursor );
   std::vector< SampleBlock > minutesInMemory() const;

   std::string interface_;
   std::string fileName_;
   SampleLayout layout_;
   std::vector< Waiting > waiting_;
   Cursor fine_, minute_;
   Vel::U64 lastStep_ = 0;
   bool prepared_ = false; ///< the file has been seen to be one of ours
};

} // namespace Agent
