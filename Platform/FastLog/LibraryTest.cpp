#include "Platform/FastLog/FastLog.h"

/// What a test loads and unloads. Returns how often it has been called since it was loaded.
extern "C" unsigned logFromLibrary( int number ) {
   static unsigned calls = 0;
   const std::string unit = "unit-of-library";
   FASTLOG( "library logs ", number, " for ", unit );
   return calls++;
}
