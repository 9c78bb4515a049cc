// The rates of one interface over the last minutes: samples that the agent has kept, and live ones after them.

/** So many periods without a point are a gap. */
const gap = 3;

export class Series {
   /** Keeps `span` seconds of points that come once in `period` seconds, or more often. */
   constructor( span, period = Infinity ) {
      this.span = span;
      this.period = period;
      this.clear();
   }
   clear() {
      this.times = [];
      this.ins = [];
      this.outs = [];
   }
   get length() { return this.times.length; }
   get last() { return this.times.length ? this.times[ this.times.length - 1 ] : -Infinity; }

   /**
    * Adds a point behind the others; a rate that is not known is null. After a gap the curve begins anew: whether there
    * was one. If the clock has been set back nothing of what is known has its time any more, and all of it is missing.
    */
   push( time, inBps, outBps ) {
      const { last, period } = this;
      if ( time < last - period ) {
         this.clear();
         this.append( time, inBps, outBps );
         return true;
      }
      const missing = this.length > 0 && time - last > gap * period;
      if ( missing )
         this.append( last + period, null, null );
      this.append( time, inBps, outBps );
      if ( this.times[ 0 ] < time - 1.2 * this.span )
         this.prune( time - this.span );
      return missing;
   }
   /** Of a level stretch only the two ends are kept. */
   append( time, inBps, outBps ) {
      const { times, ins, outs } = this;
      const n = times.length;
      if ( n && time <= times[ n - 1 ] )
         return;
      const same = ( i ) => i >= 0 && ins[ i ] === inBps && outs[ i ] === outBps;
      if ( same( n - 1 ) && same( n - 2 ) ) {
         times[ n - 1 ] = time;
         return;
      }
      times.push( time );
      ins.push( inBps );
      outs.push( outBps );
   }
   prune( from ) {
      // One point before the edge stays, so that the curve enters from there.
      let first = this.times.findIndex( ( time ) => time >= from );
      first = first < 0 ? this.times.length - 1 : first - 1;
      if ( first > 0 )
         for ( const list of [ this.times, this.ins, this.outs ] )
            list.splice( 0, first );
   }
   /**
    * Puts kept samples in place of what was known of their time: each is the mean of a step, and stands at the end of it,
    * as a live one stands at the end of what it is the mean of.
    */
   take( start, step, ins, outs ) {
      const { times: oldTimes, ins: oldIns, outs: oldOuts } = this;
      let n = ins.length;
      while ( n && ( ins[ n - 1 ] ?? null ) === null && ( outs[ n - 1 ] ?? null ) === null )
         --n;
      if ( !n )
         return;
      this.clear();
      let old = 0;
      for ( ; old < oldTimes.length && oldTimes[ old ] <= start; ++old )
         this.append( oldTimes[ old ], oldIns[ old ], oldOuts[ old ] );
      // A level stretch that has its other end further on.
      if ( old && old < oldTimes.length && oldIns[ old ] === oldIns[ old - 1 ] && oldOuts[ old ] === oldOuts[ old - 1 ] )
         this.append( start, oldIns[ old ], oldOuts[ old ] );
      if ( this.length && start + step - this.last > gap * Math.max( step, this.period ) )
         this.append( this.last + this.period, null, null );
      for ( let i = 0; i < n; ++i )
         this.append( start + ( i + 1 ) * step, ins[ i ] ?? null, outs[ i ] ?? null );
      for ( ; old < oldTimes.length; ++old )
         this.append( oldTimes[ old ], oldIns[ old ], oldOuts[ old ] );
      this.prune( this.last - this.span );
   }
}

/** The sum of curves whose points need not lie at equal times: each counts as its last point before. */
export function sumUp( sum, all ) {
   sum.clear();
   const times = [ ...new Set( all.flatMap( ( series ) => series.times ) ) ].sort( ( a, b ) => a - b );
   const at = all.map( () => -1 );
   for ( const time of times ) {
      let ins = null, outs = null;
      all.forEach( ( series, i ) => {
         while ( at[ i ] + 1 < series.length && series.times[ at[ i ] + 1 ] <= time )
            ++at[ i ];
         if ( at[ i ] < 0 )
            return;
         const inBps = series.ins[ at[ i ] ], outBps = series.outs[ at[ i ] ];
         ins = inBps === null ? ins : ( ins ?? 0 ) + inBps;
         outs = outBps === null ? outs : ( outs ?? 0 ) + outBps;
      } );
      sum.append( time, ins, outs );
   }
}

/** What a curve says, for whoever cannot see it. */
export function summary( series, threshold, format ) {
   const { times, ins, outs } = series;
   const of = ( name, values ) => {
      let most = -1, least = -1;
      values.forEach( ( value, i ) => {
         if ( value === null )
            return;
         if ( most < 0 || value > values[ most ] )
            most = i;
         if ( least < 0 || value < values[ least ] )
            least = i;
      } );
      if ( most < 0 )
         return `${name}: no samples`;
      const now = values[ values.length - 1 ];
      return `${name}: now ${format.rate( now )}, highest ${format.rate( values[ most ] )} at ${
         format.clock( times[ most ] )}, lowest ${format.rate( values[ least ] )} at ${format.clock( times[ least ] )}`;
   };
   const limit = threshold ? `; threshold ${format.rate( threshold )}` : '';
   return `${of( 'in', ins )}; ${of( 'out', outs )}${limit}`;
}
