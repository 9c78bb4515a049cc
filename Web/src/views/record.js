// One past maintenance: who, why, what came of it and when, and each interface with its curve.

import { Curve } from '../curve.js';
import { attribute, h, Rows, shown, text } from '../dom.js';
import * as format from '../format.js';
import { Reading } from '../link.js';
import { crumbs, Facts, interfaceLink, profileText, Rates, unitLink } from '../parts.js';
import { Series } from '../series.js';
import { reasonStanding } from '../standing.js';

export const outcomes = { open: '▶ open', completed: '✓ completed', cancelled: '◀ cancelled', aborted: '× aborted' };
const period = 10;

/** The course of it, as "14:02:07 enter by ann". */
const steps = ( record ) => [
   [ record.began, 'enter', record.by, record.reason ],
   [ record.times?.overrun, 'deadline missed' ],
   [ record[ 'in-maintenance' ], 'under maintenance' ],
   [ record[ 'exit-began' ], 'exit', record[ 'exit-by' ], record[ 'exit-reason' ] ],
   [ record.ended, record.outcome ],
].filter( ( [ time ] ) => time ).map( ( [ time, ...rest ] ) => ( { time, began: record.began, is: rest } ) );

const span = ( from, to ) => ( from && to ? format.duration( format.seconds( to ) - format.seconds( from ) ) : '' );

/** A row that is made of its item and never changes. */
const fixed = ( make ) => ( item ) => ( { element: make( item ), update() {} } );
const keyOf = ( item ) => JSON.stringify( item );

const courseRow = fixed( ( { time, began, is: [ what, by, why ] } ) => h( 'li', {},
   h( 'time', { datetime: time }, format.day( format.seconds( time ) ) ), ' ', h( 'strong', {}, what ),
   by ? ` by ${by}` : '', why ? [ ' ', h( 'q', {}, why ) ] : '', ' ',
   time === began ? '' : h( 'span', { class: 'faint' }, `after ${span( began, time )}` ) ) );

const timeText = ( time ) => ( time ? format.day( format.seconds( time ) ) : '' );
const factsOf = ( { unit, outcome, counts, times, overridden, ...record } ) => [
   [ 'Unit', [ [ unit, unitLink( unit ) ] ] ],
   [ 'Outcome', outcomes[ outcome ] ?? outcome ],
   [ 'Drained', `${counts.drained} of ${counts.interfaces} interfaces` ],
   [ 'Forced shutdowns', String( counts.forced ) ],
   [ 'Spikes', String( counts.spikes ) ],
   [ 'Forced although', overridden?.join( '; ' ) ],
   [ 'With', format.pairs( record.with ) ],
   [ 'Exit with', format.pairs( record[ 'exit-with' ] ) ],
   [ 'Deadline', timeText( times?.deadline ) ],
   [ 'To go back', timeText( times?.[ 'revert-at' ] ) ],
].filter( ( [ , value ] ) => value );

const stageRow = fixed( ( stage ) => h( 'tr', {}, h( 'th', { scope: 'row' }, stage.name ), h( 'td', {}, stage.way ),
   h( 'td', {}, stage.failure ? `${stage.state}: ${stage.failure}` : stage.state ), h( 'td', {}, span( stage.began, stage.ended ) ) ) );

/** What happened to an interface, in order: [ time, words, kind of its mark ]. */
function happened( intf ) {
   const all = intf.reasons.map( ( reason ) => [ reason.time,
      `${reasonStanding( reason.code ).label}${reason[ 'rate-bps' ] === null ? '' : ` at ${format.rate( reason[ 'rate-bps' ] )}`}`,
         'state' ] );
   for ( const spike of intf.spikes )
      all.push( [ spike.began, `spike of ${format.rate( spike[ 'peak-bps' ] )}${
         spike.ended ? ` for ${span( spike.began, spike.ended )}` : ''}`, 'spike' ] );
   if ( intf.shut )
      all.push( [ intf.shut, `shut, ${intf.shutdown}`, 'state' ] );
   if ( intf.raised )
      all.push( [ intf.raised, 'raised', 'state' ] );
   for ( const drift of intf.drift )
      all.push( [ drift.time, `${drift.what || 'as we left it'} by somebody else`, 'state' ] );
   return all.filter( ( [ time ] ) => time ).sort( ( a, b ) => format.seconds( a[ 0 ] ) - format.seconds( b[ 0 ] ) );
}

const storyRow = fixed( ( [ time, words ] ) => h( 'li', {},
   h( 'time', { datetime: time }, format.clock( format.seconds( time ) ) ), ` ${words}` ) );

class PastPanel {
   constructor( { name } ) {
      this.series = new Series( Infinity );
      this.curve = new Curve( { name, facts: () => this.facts } );
      this.drained = h( 'span', { class: 'faint' } );
      this.none = h( 'p', { class: 'none' }, 'no samples were kept' );
      this.peak = h( 'p', { class: 'faint' } );
      this.rates = new Rates();
      this.count = h( 'summary' );
      this.story = h( 'ol', { class: 'story' } );
      this.storyRows = new Rows( this.story, keyOf, storyRow );
      this.profile = h( 'p', { class: 'faint' } );
      this.element = h( 'article', {}, h( 'header', {}, h( 'h3', {}, h( 'a', { href: interfaceLink( name ) }, name ) ), this.drained ),
         this.curve.element, this.none, this.peak, this.rates.element, h( 'details', {}, this.count, this.story ), this.profile );
   }
   update( { record, intf } ) {
      const story = happened( intf );
      const { curve, profile } = intf;
      const peak = format.seconds( intf[ 'peak-time' ] );
      attribute( this.element, 'class',
         `panel ${intf.spikes.length ? 'alarm' : intf.shutdown === 'forced' ? 'warn' : intf.drained ? 'good' : 'quiet'}` );
      text( this.drained, intf.drained ? `✓ drained after ${span( intf.began, intf.drained )}` : 'not drained' );
      shown( this.curve.element, Boolean( curve ) );
      shown( this.none, !curve );
      shown( this.peak, peak !== null );
      shown( this.rates.element, peak !== null );
      text( this.peak, `highest after it drained, at ${format.clock( peak )}:` );
      this.rates.update( intf[ 'peak-in-bps' ], intf[ 'peak-out-bps' ] );
      text( this.count, `${story.length} ${story.length === 1 ? 'change' : 'changes'}` );
      this.storyRows.update( story );
      shown( this.profile, Boolean( profile ) );
      text( this.profile, profile ? profileText( profile ) : '' );
      this.series.clear();
      if ( curve )
         this.series.take( format.seconds( curve.start ), curve[ 'step-seconds' ], curve[ 'in-bps' ], curve[ 'out-bps' ] );
      const from = format.seconds( curve?.start ?? intf.began ?? record.began );
      const to = Math.max( format.seconds( record.ended ) ?? 0, this.series.last, from + 60 );
      this.facts = {
         from, to, now: to, deadline: null, threshold: profile?.[ 'threshold-bps' ] ?? null, loadInterval: null, series: this.series,
         marks: story.map( ( [ time, label, kind ] ) => ( { time: format.seconds( time ), label, kind } ) ),
      };
      this.curve.dirtyIs();
   }
   remove() { this.curve.remove(); }
}

export class RecordView {
   constructor( model, id ) {
      this.title = `Maintenance ${id}`;
      this.record = null;
      this.none = h( 'p', { class: 'none' }, 'Asking the agent …' );
      this.heading = h( 'h1', {}, this.title );
      this.course = h( 'ol', { class: 'course' } );
      this.facts = new Facts();
      this.grid = h( 'div', { class: 'grid' } );
      this.leftOut = h( 'p', { class: 'none' } );
      this.stages = h( 'tbody' );
      this.courseRows = new Rows( this.course, keyOf, courseRow );
      this.panels = new Rows( this.grid, ( { intf } ) => intf.name, ( { intf } ) => new PastPanel( intf ) );
      this.stageRows = new Rows( this.stages, keyOf, stageRow );
      this.staged = h( 'section', { 'aria-labelledby': 'stages' }, h( 'h2', { id: 'stages' }, 'Stages' ),
         h( 'table', {}, h( 'caption', { class: 'unseen' }, 'Stages' ),
            h( 'thead', {}, h( 'tr', {}, [ 'Stage', 'Way', 'State', 'Took' ].map( ( words ) => h( 'th', { scope: 'col' }, words ) ) ) ),
            this.stages ) );
      this.body = shown( h( 'div', {},
         h( 'div', { class: 'summary' }, h( 'section', { 'class': 'about', 'aria-label': 'Course' }, this.course ), this.facts.element ),
         h( 'section', { 'aria-labelledby': 'interfaces' }, h( 'h2', { id: 'interfaces' }, 'Interfaces' ), this.grid, this.leftOut ),
         this.staged ), false );
      this.element = h( 'div', { class: 'view' }, crumbs( [ 'Past maintenances', '#/history' ], [ String( id ) ] ),
         h( 'div', { class: 'head' }, this.heading ), this.none, this.body );
      model.watch( [] );
      this.reading = new Reading( {
         path: () => `history/${encodeURIComponent( id )}`,
         onBody: ( record ) => {
            text( this.none, record ? '' : `There is no maintenance ${id}.` );
            shown( this.none, !record );
            if ( record )
               this.recordIs( record );
         },
         onRefused: ( error ) => {
            text( this.none, error.message );
            shown( this.none, true );
         },
      } );
      this.reading.ask();
      // One that is over stays as it is.
      this.timer = setInterval( () => this.record?.outcome === 'open' && !document.hidden && this.reading.ask(), period * 1000 );
   }
   recordIs( record ) {
      this.record = record;
      text( this.heading, `Maintenance ${record.id} of ${record.unit}` );
      this.courseRows.update( steps( record ) );
      this.facts.update( factsOf( record ) );
      this.panels.update( record.interfaces.map( ( intf ) => ( { record, intf } ) ) );
      shown( this.leftOut, record[ 'interfaces-left-out' ] > 0 );
      text( this.leftOut, `and ${record[ 'interfaces-left-out' ]} more that were not written down` );
      this.stageRows.update( record.stages );
      shown( this.staged, record.stages.length > 0 );
      shown( this.body, true );
   }
   update() {}
   remove() {
      clearInterval( this.timer );
      this.reading.stop();
      this.panels.remove();
   }
}
