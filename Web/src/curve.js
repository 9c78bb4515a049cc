// A live curve: rate in and out against the threshold, on a scale of decades, since what matters is how far it is from
// the threshold and not from the line rate.

import uPlot from 'uplot';
import * as format from './format.js';
import { summary } from './series.js';
import { h, text } from './dom.js';

/** Colours of the page as it is shown now, for what is drawn and not styled. */
let colours = null;
const names = [ 'in', 'out', 'threshold', 'zone', 'grid', 'faint', 'mark', 'alarm', 'text', 'surface' ];

function readColours() {
   const style = getComputedStyle( document.documentElement );
   colours = Object.fromEntries( names.map( ( name ) => [ name, style.getPropertyValue( `--${name}` ).trim() ] ) );
}

const curves = new Set();
matchMedia( '(prefers-color-scheme: dark)' ).addEventListener( 'change', () => {
   readColours();
   for ( const curve of curves )
      curve.remake();
} );

/** What comes into sight is made, what goes out of it is let go: of hundreds of curves a dozen are alive. */
const sight = new IntersectionObserver( ( entries ) => {
   for ( const { target, isIntersecting } of entries )
      target.curve?.visibleIs( isIntersecting );
}, { rootMargin: '150px' } );

const sizes = new ResizeObserver( ( entries ) => {
   for ( const { target } of entries )
      target.curve?.dirtyIs();
} );

/** All that has changed is drawn once, in the next frame. */
const dirty = new Set();
let frame = null;
function drawSoon( curve ) {
   dirty.add( curve );
   frame ??= requestAnimationFrame( () => {
      frame = null;
      const all = [ ...dirty ];
      dirty.clear();
      for ( const each of all )
         each.draw();
   } );
}
export const statistics = { drawn: 0, get curves() { return curves.size; } };

const dash = ( ...lengths ) => lengths.map( ( length ) => length * devicePixelRatio );
const fontOf = ( size ) => `${size * devicePixelRatio}px system-ui, sans-serif`;
const asSet = ( _, min, max ) => [ min, max ];
/** Steps of time between two lines of the grid, in seconds. */
const steps = [ 60, 120, 300, 600, 1800, 3600, 7200, 21600, 86400 ];

/**
 * A curve and its text for whoever cannot see it. `facts()` gives what it shows now:
 * { from, to, threshold, loadInterval, now, deadline, marks: [ { time, kind, label } ], series }; a time is in seconds,
 * null: there is none; kind is "state" or "spike". `onCursor( time, in, out )`: where the pointer is; nothing: away.
 * `onSight( visible )`: it has come into sight or gone.
 */
export class Curve {
   constructor( { name, facts, tall = false, onCursor = null, onSight = null } ) {
      this.name = name;
      this.facts = facts;
      this.onCursor = onCursor;
      this.onSight = onSight;
      this.caption = h( 'figcaption', { class: 'unseen' } );
      this.box = h( 'div', { class: 'curve-box', 'aria-hidden': 'true' } );
      this.element = h( 'figure', { class: tall ? 'curve tall' : 'curve' }, this.box, this.caption );
      this.box.curve = this;
      this.plot = null;
      this.visible = false;
      this.captionAt = -Infinity;
      curves.add( this );
      sight.observe( this.box );
      sizes.observe( this.box );
   }
   remove() {
      curves.delete( this );
      dirty.delete( this );
      sight.unobserve( this.box );
      sizes.unobserve( this.box );
      this.visibleIs( false );
   }
   letGo() {
      this.plot?.destroy();
      this.plot = null;
   }
   remake() {
      this.letGo();
      this.dirtyIs();
   }
   visibleIs( visible ) {
      this.visible = visible;
      this.onSight?.( visible );
      if ( visible )
         this.dirtyIs();
      else
         this.letGo();
   }
   dirtyIs() {
      if ( this.visible )
         drawSoon( this );
   }

   draw() {
      if ( !this.visible || !this.box.isConnected )
         return;
      const width = this.box.clientWidth, height = this.box.clientHeight;
      if ( !width || !height )
         return;
      ++statistics.drawn;
      this.now = this.facts();
      const data = this.data();
      if ( !this.plot )
         this.plot = new uPlot( this.options( width, height ), data, this.box );
      else if ( this.plot.width !== width || this.plot.height !== height )
         this.plot.setSize( { width, height } );
      this.plot.setData( data, false );
      this.plot.batch( () => {
         this.plot.setScale( 'x', { min: this.now.from, max: this.now.to } );
         this.plot.setScale( 'y', this.range );
      } );
      this.describe();
   }
   /** The text is for people who listen; it need not follow each second. */
   describe() {
      const at = performance.now();
      const { from, now, series, threshold, marks } = this.now;
      if ( at - this.captionAt < 5000 && this.captioned === series.length > 0 )
         return;
      this.captionAt = at;
      this.captioned = series.length > 0;
      const marked = marks.filter( ( mark ) => mark.time >= from )
                        .map( ( mark ) => `${mark.label} at ${format.clock( mark.time )}` );
      text( this.caption, `${this.name}, ${format.duration( now - from )} to ${format.clock( now )} UTC. ${
         summary( series, threshold, format )}${marked.length ? `. ${marked.join( ', ' )}` : ''}.` );
   }

   /** The rates by decades. Whatever is below the lowest decade lies on the bottom line. */
   data() {
      const { series, threshold } = this.now;
      let most = threshold ?? 1e3, least = Infinity;
      for ( const values of [ series.ins, series.outs ] )
         for ( const value of values )
            if ( value !== null ) {
               most = Math.max( most, value );
               least = Math.min( least, value );
            }
      const bottom = threshold ? Math.floor( Math.log10( threshold ) - 1 )
                               : Math.max( 2, Math.floor( Math.log10( Math.max( 1e3, Math.min( most, least ) ) ) ) - 1 );
      const top = Math.max( Math.log10( most ) + 0.3, bottom + 2.6 );
      this.bottom = bottom;
      this.range = { min: bottom, max: top };
      const decades = ( value ) => ( value === null ? null : Math.max( bottom, Math.log10( Math.max( value, 1 ) ) ) );
      return [ series.times, series.ins.map( decades ), series.outs.map( decades ) ];
   }

   options( width, height ) {
      if ( !colours )
         readColours();
      const axis = {
         stroke: colours.faint,
         font: '10px system-ui, sans-serif',
         grid: { stroke: colours.grid, width: 1 },
         ticks: { show: false },
      };
      return {
         width, height,
         pxAlign: 1,
         padding: [ 6, 16, 0, 0 ],
         legend: { show: false },
         select: { show: false },
         cursor: {
            drag: { x: false, y: false, setScale: false },
            sync: { key: 'curves' },
            points: { size: 6 },
            y: false,
         },
         // They are as they are set; without points the library would widen them.
         scales: { x: { time: false, auto: false, range: asSet }, y: { auto: false, range: asSet } },
         series: [
            {},
            { stroke: colours.in, width: 1.5, points: { show: false } },
            { stroke: colours.out, width: 1.5, dash: [ 5, 3 ], points: { show: false } },
         ],
         axes: [
            {
               ...axis,
               size: 18,
               gap: 3,
               incrs: steps,
               space: 54,
               values: ( _, splits, __, ___, step ) => splits.map( ( split ) => this.timeText( split, step ) ),
            },
            {
               ...axis,
               size: 38,
               gap: 4,
               splits: () => this.decades(),
               values: ( _, splits ) => splits.map( ( split ) => ( split === this.bottom ? '≈0' : format.shortRate( 10 ** split ) ) ),
            },
         ],
         hooks: {
            drawAxes: [ ( plot ) => this.drawBelow( plot ) ],
            draw: [ ( plot ) => this.drawAbove( plot ) ],
            setCursor: [ ( plot ) => this.cursorIs( plot ) ],
         },
      };
   }
   /** None at the left end, where the lowest rate stands. */
   timeText( time, step ) {
      const { from, to } = this.now;
      return time - from < 0.04 * ( to - from ) ? '' : ( step < 86400 ? format.shortClock : format.date )( time );
   }
   /** As many decades as there is room for. */
   decades() {
      const { min, max } = this.range;
      const room = Math.max( 2, Math.floor( ( this.box.clientHeight - 24 ) / 17 ) );
      const step = Math.max( 1, Math.ceil( ( max - min ) / room ) );
      const result = [];
      for ( let decade = min; decade <= max; decade += step )
         result.push( decade );
      return result;
   }
   cursorIs( plot ) {
      const at = plot.cursor.idx;
      const { series } = this.now;
      if ( at === null || at === undefined || plot.cursor.left < 0 )
         this.onCursor?.( null );
      else
         this.onCursor?.( series.times[ at ], series.ins[ at ], series.outs[ at ] );
   }

   /** The zone that traffic has to stay in to have drained: below the threshold, for the load interval until now. */
   drawBelow( plot ) {
      const { threshold, loadInterval, now } = this.now;
      if ( !threshold )
         return;
      const { ctx, bbox } = plot;
      const y = plot.valToPos( Math.log10( threshold ), 'y', true );
      const right = Math.min( plot.valToPos( now, 'x', true ), bbox.left + bbox.width );
      ctx.save();
      if ( loadInterval ) {
         const left = Math.max( plot.valToPos( now - loadInterval, 'x', true ), bbox.left );
         ctx.fillStyle = colours.zone;
         ctx.fillRect( left, y, Math.max( right - left, 2 ), bbox.top + bbox.height - y );
      }
      line( ctx, colours.threshold, dash( 2, 3 ), bbox.left, y, bbox.left + bbox.width, y );
      ctx.restore();
   }
   drawAbove( plot ) {
      const { from, to, now, deadline, marks } = this.now;
      const { ctx, bbox } = plot;
      const bottom = bbox.top + bbox.height;
      const x = ( time ) => Math.round( plot.valToPos( time, 'x', true ) );
      ctx.save();
      for ( const mark of marks ) {
         if ( mark.time < from || mark.time > to )
            continue;
         const alarm = mark.kind === 'spike';
         ctx.fillStyle = alarm ? colours.alarm : colours.mark;
         line( ctx, ctx.fillStyle, alarm ? [] : dash( 1, 2 ), x( mark.time ), bbox.top, x( mark.time ), bottom );
         const size = 4 * devicePixelRatio;
         ctx.beginPath();
         if ( alarm ) {
            ctx.moveTo( x( mark.time ), bbox.top );
            ctx.lineTo( x( mark.time ) - size, bbox.top + 1.7 * size );
            ctx.lineTo( x( mark.time ) + size, bbox.top + 1.7 * size );
         } else
            ctx.arc( x( mark.time ), bottom, 0.75 * size, 0, 7 );
         ctx.fill();
      }
      if ( deadline !== null && deadline > from && deadline <= to ) {
         line( ctx, colours.alarm, dash( 5, 3 ), x( deadline ), bbox.top, x( deadline ), bottom );
         label( ctx, colours.alarm, 'shut', x( deadline ), bbox, 'top' );
      }
      if ( to > now + 1 )
         line( ctx, colours.grid, [], x( now ), bbox.top, x( now ), bottom );
      ctx.restore();
   }
}

function line( ctx, colour, pattern, x0, y0, x1, y1 ) {
   ctx.strokeStyle = colour;
   ctx.lineWidth = devicePixelRatio;
   ctx.setLineDash( pattern );
   ctx.beginPath();
   ctx.moveTo( x0, y0 );
   ctx.lineTo( x1, y1 );
   ctx.stroke();
}

function label( ctx, colour, words, x, bbox, baseline ) {
   ctx.font = fontOf( 10 );
   ctx.textBaseline = baseline;
   ctx.fillStyle = colour;
   const width = ctx.measureText( words ).width + 4 * devicePixelRatio;
   const right = x + width < bbox.left + bbox.width;
   ctx.textAlign = right ? 'left' : 'right';
   ctx.fillText( words, x + ( right ? 3 : -3 ) * devicePixelRatio, bbox.top );
}
