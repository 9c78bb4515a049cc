#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// Purpose: files that are there as a whole or not at all, whatever happens while they are written; written and read in
/// pieces, so that nobody waits for megabytes.
namespace Agent {

/// A descriptor of its own.
class Descriptor {
 public:
   explicit Descriptor( int number = -1 ) : number_( number ) {}
   ~Descriptor();
   Descriptor( Descriptor && other ) noexcept : number_( other.release() ) {}
   Descriptor & operator=( Descriptor && other ) noexcept;

   int number() const { return number_; }
   bool isOpen() const { return number_ >= 0; }
   int release() {
      const int number = number_;
      number_ = -1;
      return number;
   }

 private:
   int number_;
};

/// A file that is written. It gets its name when it is finished; until then it bears another one, and is removed if this
/// object goes.
class WholeFile {
 public:
   /// What the name of a file ends with while it is written; one that is left is good for nothing.
   static constexpr char unfinishedEnding[] = ".new";

   explicit WholeFile( std::string path );
   ~WholeFile();
   WholeFile( const WholeFile & ) = delete;
   WholeFile & operator=( const WholeFile & ) = delete;

   // Each says what went wrong, naming the file; empty: nothing. After that the file cannot be finished.

   /// Makes the file, and its folder if that is missing. Once, before all else.
   std::string open();
   /// The disk begins to write it at once, and it is not waited for.
   std::string append( std::string_view text );
   /// Waits until it is on disk, and gives it its name; a file that bears it is replaced. Once.
   std::string finish();

 private:
   std::string problem( int error ) const;

   const std::string path_, fresh_;
   Descriptor descriptor_;
   bool made_ = false; ///< the file with the other name is there
};

/// A file that is read. It can be read to its end although it is removed or replaced meanwhile.
class FilePieces {
 public:
   static constexpr std::size_t pieceSize = 32 * 1024;

   /// Nothing if it cannot be opened.
   static std::optional< FilePieces > open( const std::string & path );

   /// Bytes.
   std::size_t size() const { return size_; }
   /// The last byte; 0: there is none, or it cannot be read.
   char last() const;
   /// What comes next, of that size at most; empty: that was all; nothing: it cannot be read any further, or has become
   /// shorter.
   std::optional< std::string > next();

 private:
   FilePieces( Descriptor descriptor, std::size_t size )
      : descriptor_( std::move( descriptor ) ), size_( size ) {}

   Descriptor descriptor_;
   std::size_t size_;
   std::size_t read_ = 0;
};

} // namespace Agent
