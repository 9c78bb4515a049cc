// How numbers and times are written: as the agent and its command write them.

const units = [ [ 1e9, 'Gbit/s' ], [ 1e6, 'Mbit/s' ], [ 1e3, 'kbit/s' ] ];

/** A rate in bits per second, with three digits that count: "812 kbit/s"; a dash for null. */
export function rate( bps ) {
   if ( bps === null || bps === undefined || !Number.isFinite( bps ) )
      return '–';
   for ( const [ size, name ] of units )
      if ( bps >= size * 0.9995 )
         return `${three( bps / size )} ${name}`;
   return `${Math.round( bps )} bit/s`;
}

function three( value ) {
   const digits = value >= 99.95 ? 0 : value >= 9.995 ? 1 : 2;
   return value.toFixed( digits ).replace( /\.0+$|(\.\d*?)0+$/, '$1' );
}

/** The same for the axis of a curve: "100k". */
export function shortRate( bps ) {
   for ( const [ size, letter ] of [ [ 1e12, 'T' ], [ 1e9, 'G' ], [ 1e6, 'M' ], [ 1e3, 'k' ] ] )
      if ( bps >= size )
         return three( bps / size ) + letter;
   return String( Math.round( bps ) );
}

/** Seconds since 1970 of a time in RFC 3339; null for null and for what is no time. */
export function seconds( text ) {
   const value = text ? Date.parse( text ) / 1000 : NaN;
   return Number.isFinite( value ) ? value : null;
}

const two = ( n ) => String( n ).padStart( 2, '0' );

/** Time of day in UTC, "14:02:07". */
export function clock( time ) {
   if ( time === null || time === undefined )
      return '–';
   return new Date( time * 1000 ).toISOString().slice( 11, 19 );
}

/** "14:02" */
export const shortClock = ( time ) => clock( time ).slice( 0, 5 );

/** "11-21" */
export const date = ( time ) => day( time ).slice( 5, 10 );

/** "2026-11-21 14:02:07" */
export function day( time ) {
   if ( time === null || time === undefined )
      return '–';
   return new Date( time * 1000 ).toISOString().slice( 0, 19 ).replace( 'T', ' ' );
}

export const isNear = ( time, now ) => Math.abs( time - now ) < 43200;
/** A time near now as clock, else with its day. */
export const moment = ( time, now ) => ( isNear( time, now ) ? clock : day )( time );

/** Seconds as "45s", "3m10s", "2h05m", "3d04h". */
export function duration( value ) {
   if ( value === null || value === undefined || !Number.isFinite( value ) )
      return '–';
   const s = Math.max( 0, Math.round( value ) );
   if ( s < 60 )
      return `${s}s`;
   if ( s < 3600 )
      return `${Math.floor( s / 60 )}m${two( s % 60 )}s`;
   if ( s < 86400 )
      return `${Math.floor( s / 3600 )}h${two( Math.floor( ( s % 3600 ) / 60 ) )}m`;
   return `${Math.floor( s / 86400 )}d${two( Math.floor( ( s % 86400 ) / 3600 ) )}h`;
}

/** Pairs of an answer, "ticket=OPS-12, batch=7". */
export const pairs = ( object ) => Object.entries( object ?? {} ).map( ( [ key, value ] ) => `${key}=${value}` ).join( ', ' );

/** What an object of an answer has under a name that may be any; undefined: nothing. */
export const own = ( object, name ) => ( Object.prototype.hasOwnProperty.call( object, name ) ? object[ name ] : undefined );

/** Names as people sort them: et2 before et10. */
const collator = new Intl.Collator( 'en', { numeric: true } );
export const byName = ( a, b ) => collator.compare( a, b );
