#pragma once

#include "Config/Load.h"

#include <gtest/gtest.h>

/// Three good lines; what a row adds to them begins on line 4.
inline const std::string good = "version: 1\n"
                                "profiles: {p: {threshold: 1kbps, load-interval: 1s}}\n"
                                "default-profile: p\n";

/// A file, named f, and all that is said about it.
struct ErrorRow {
   std::string text;
   std::vector< std::string > errors;
};

inline std::vector< std::string > textsOf( const Config::Result & result ) {
   std::vector< std::string > texts;
   for ( const Config::Error & error : result.errors )
      texts.push_back( error.text() );
   return texts;
}

inline std::vector< std::string > warningsOf( const Config::Result & result ) {
   std::vector< std::string > texts;
   for ( const Config::Error & warning : result.warnings )
      texts.push_back( warning.warningText() );
   return texts;
}

inline void expectErrors( const std::vector< ErrorRow > & rows ) {
   for ( const ErrorRow & row : rows ) {
      SCOPED_TRACE( row.text );
      const Config::Result result = Config::parse( row.text, "f" );
      EXPECT_FALSE( result );
      EXPECT_EQ( row.errors, textsOf( result ) );
   }
}
