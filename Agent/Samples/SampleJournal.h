#pragma once

#include "Agent/Model/Samples.h"
#include "Agent/Samples/SampleBlocks.h"

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Purpose: what all interfaces have carried in the minute that goes on and in the one before, in two files that take
/// turns. So the samples of a tick are one write of a few bytes an interface, wherever their files are, and an
/// interface's own file is written once a minute.
/// Owner: the samples.
///
/// A file is what has been added, one record behind the other: names first, then a column of samples for each step, in
/// the order of the names before it. Checksums bind a column to its names, and names to their minute. What follows the
/// last record, of an earlier minute or of a write that was cut off, belongs to none and is not taken.
///
/// Nothing is synced: what the system loses when it stops is a gap.
namespace Agent {

class SampleJournal {
 public:
   using Rates = SampleSource::Rates;
   /// Samples of an interface, by name, in steps of 5 s that rise.
   using Steps = std::vector< std::pair< Vel::U64, Sample > >;
   using Take = std::function< void( std::string_view name, const Steps & samples ) >;

   /// The names of the two files in the folder.
   static constexpr const char * fileNames[] = { "present.0", "present.1" };

   /// What earlier processes have added of the last two minutes, the earlier before the later ones. Before anything is added; that goes on
   /// behind it.
   void read( int folder, const Take & take );
   /// A step later than all that were added. Gives what went wrong, for the operator.
   std::string add( int folder, Vel::U64 step, const Rates & rates );

 private:
   struct File {
      Vel::U32 minute = 0; ///< of all that it holds
      std::size_t size = 0;
   };
   struct Found;
   static Found parse( std::string content, std::size_t place );
   static void takeAll( const Found & found, const Take & take );
   void addNames( const Rates & rates, Vel::U32 minute );
   void addColumn( const Rates & rates, Vel::U64 step );
   bool hasNamesOf( const Rates & rates ) const;
   int write( int descriptor, File & file, Vel::U64 step, const Rates & rates );

   std::array< File, 2 > files_;
   std::vector< Wire::IntfId > names_; ///< those that the next column is of
   Vel::U32 check_ = 0;                ///< of their record
   bool named_ = false;                ///< that is in the file
   std::string text_;                  ///< to be written
};

} // namespace Agent
