# What of headers a compiler sees, for a checksum: behind Tools/strip.awk, with the headers as arguments. Comments, blanks
# and the text of strings do not count.

FNR == 1 { print FILENAME }
{
   line = strip( $0 )
   gsub( /[ \t]+/, "", line )
   if( line != "" ) print line
}
