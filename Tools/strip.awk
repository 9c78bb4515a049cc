# strip( line ): a line of C++ without its comments and without what stands in its strings. Call it once for each line of
# a file, in order; it remembers block comments and raw strings that go on in the next line.
# inCode(): whether the next line starts in code.

FNR == 1 { inBlock = 0; rawEnd = "" }

function inCode() { return !inBlock && rawEnd == "" }

function strip( s,    out, mark, i ) {
   out = ""
   while( s != "" ) {
      if( rawEnd != "" ) {
         i = index( s, rawEnd )
         if( !i ) return out
         s = substr( s, i + length( rawEnd ) )
         rawEnd = ""
         out = out "\""
      } else if( inBlock ) {
         i = index( s, "*/" )
         if( !i ) return out
         s = substr( s, i + 2 )
         inBlock = 0
         out = out " "
      } else {
         if( !match( s, /\/\/|\/\*|"|'/ ) ) return out s
         mark = substr( s, RSTART, RLENGTH )
         out = out substr( s, 1, RSTART - 1 )
         s = substr( s, RSTART + RLENGTH )
         if( mark == "//" ) return out
         if( mark == "/*" ) {
            inBlock = 1
         } else if( mark == "\"" && out ~ /(^|[^A-Za-z0-9_])(u8|u|U|L)?R$/ ) {
            i = index( s, "(" )
            rawEnd = ")" substr( s, 1, i - 1 ) "\""
            s = substr( s, i + 1 )
            out = out "\""
         } else if( mark == "\"" ) {
            s = match( s, /^([^"\\]|\\.)*"/ ) ? substr( s, RLENGTH + 1 ) : ""
            out = out "\"\""
         } else if( out ~ /(^|[^A-Za-z0-9_])[0-9][0-9A-Fa-fxXbB']*$/ ) {
            out = out "'"   # groups the digits of a number
         } else {
            s = match( s, /^([^'\\]|\\.)*'/ ) ? substr( s, RLENGTH + 1 ) : ""
            out = out "''"
         }
      }
   }
   return out
}
