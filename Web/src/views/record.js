// One past maintenance: who, why, what came of it and when, and each interface with its curve.

import { optional } from '../model.js';
import { Curve } from '../curve.js';
import { h, shown, text } from '../dom.js';
import * as format from '../format.js';
import { crumbs, interfaceLink, profileText, Rates, unitLink } from '../parts.js';
import { Series } from '../series.js';
import { reasonStanding } from '../standing.js';

export const outcomes = { open: '▶ open', completed: '✓ completed', cancelled: '◀ cancelled', aborted: '× aborted' };
const period = 10;

/** The course of it, as "14:02:07 enter by ann". */
const steps = ( record ) => [
   [ record.began, 'enter', record.by, record.reason ],
   [ record[ 'in-maintenance' ], 'under maintenance' ],
   [ record[ 'exit-began' ], 'exit', record[ 'exit-by' ], record[ 'exit-reason' ] ],
   [ record.ended, record.outcome ],
].filter( ( [ time ] ) => time );

const span = ( from, to ) => ( from && to ? format.duration( format.seconds( to ) - format.seconds( from ) ) : '' );

function courseOf( record ) {
   return h( 'ol', { class: 'course' }, steps( record ).map( ( [ time, what, by, why ] ) => h( 'li', {},
      h( 'time', { datetime: time }, format.day( format.seconds( time ) ) ), ' ', h( 'strong', {}, what ),
      by ? ` by ${by}` : '', why ? [ ' ', h( 'q', {}, why ) ] : '', ' ',
      time === record.began ? '' : h( 'span', { class: 'faint' }, `after ${span( record.began, time )}` ) ) ) );
}

function factsOf( record ) {
   const { counts } = record;
   const rows = [
      [ 'Unit', h( 'a', { href: unitLink( record.unit ) }, record.unit ) ],
      [ 'Outcome', outcomes[ record.outcome ] ?? record.outcome ],
      [ 'Drained', `${counts.drained} of ${counts.interfaces} interfaces` ],
      [ 'Forced shutdowns', String( counts.forced ) ],
      [ 'Spikes', String( counts.spikes ) ],
   ];
   return h( 'dl', { class: 'facts' }, rows.flatMap( ( [ words, value ] ) => [ h( 'dt', {}, words ), h( 'dd', {}, value ) ] ) );
}

function stagesOf( record ) {
   return h( 'table', {}, h( 'caption', { class: 'unseen' }, 'Stages' ),
      h( 'thead', {}, h( 'tr', {}, [ 'Stage', 'Way', 'State', 'Took' ].map( ( words ) => h( 'th', { scope: 'col' }, words ) ) ) ),
      h( 'tbody', {}, record.stages.map( ( stage ) => h( 'tr', {}, h( 'th', { scope: 'row' }, stage.name ), h( 'td', {}, stage.way ),
         h( 'td', {}, stage.failure ? `${stage.state}: ${stage.failure}` : stage.state ),
            h( 'td', {}, span( stage.began, stage.ended ) ) ) ) ) );
}

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

class PastPanel {
   constructor( record, intf ) {
      const story = happened( intf );
      const profile = intf.profile;
      this.series = new Series( Infinity );
      if ( intf.curve )
         this.series.take( format.seconds( intf.curve.start ), intf.curve[ 'step-seconds' ], intf.curve[ 'in-bps' ],
            intf.curve[ 'out-bps' ] );
      const from = format.seconds( intf.curve?.start ?? intf.began ?? record.began );
      const to = Math.max( format.seconds( record.ended ) ?? 0, this.series.last, from + 60 );
      this.curve = new Curve( { name: intf.name, facts: () => ( {
         from, to, now: to, deadline: null, threshold: profile?.[ 'threshold-bps' ] ?? null, loadInterval: null, series: this.series,
         marks: story.map( ( [ time, label, kind ] ) => ( { time: format.seconds( time ), label, kind } ) ),
      } ) } );
      const rates = new Rates();
      rates.update( intf[ 'peak-in-bps' ], intf[ 'peak-out-bps' ] );
      this.element = h( 'article',
         { class: `panel ${intf.spikes.length ? 'alarm' : intf.shutdown === 'forced' ? 'warn' : intf.drained ? 'good' : 'quiet'}` },
         h( 'header', {}, h( 'h3', {}, h( 'a', { href: interfaceLink( intf.name ) }, intf.name ) ),
            h( 'span', { class: 'faint' }, intf.drained ? `✓ drained after ${span( intf.began, intf.drained )}` : 'not drained' ) ),
         intf.curve ? this.curve.element : h( 'p', { class: 'none' }, 'no samples were kept' ),
         intf[ 'peak-time' ] ? h( 'p', { class: 'faint' },
            `highest after it drained, at ${format.clock( format.seconds( intf[ 'peak-time' ] ) )}:` ) : null,
         intf[ 'peak-time' ] ? rates.element : null,
         h( 'details', {}, h( 'summary', {}, `${story.length} changes` ),
            h( 'ol', { class: 'story' }, story.map( ( [ time, words ] ) => h( 'li', {},
               h( 'time', { datetime: time }, format.clock( format.seconds( time ) ) ), ` ${words}` ) ) ) ),
         profile ? h( 'p', { class: 'faint' }, profileText( profile ) ) : null );
   }
}

export class RecordView {
   constructor( model, id ) {
      this.title = `Maintenance ${id}`;
      this.id = id;
      this.panels = [];
      this.none = h( 'p', { class: 'none' }, 'Asking the agent …' );
      this.body = h( 'div' );
      this.heading = h( 'h1', {}, this.title );
      this.element = h( 'div', { class: 'view' }, crumbs( [ 'Past maintenances', '#/history' ], [ String( id ) ] ),
         h( 'div', { class: 'head' }, this.heading ), this.none, this.body );
      model.watch( [] );
      this.read();
      this.timer = setInterval( () => this.record?.outcome !== 'open' && this.record || this.read(), period * 1000 );
   }
   async read() {
      let record;
      try {
         record = await optional( `history/${encodeURIComponent( this.id )}` );
      } catch ( error ) {
         text( this.none, error.message );
         return;
      }
      text( this.none, record ? '' : `There is no maintenance ${this.id}.` );
      shown( this.none, !record );
      if ( record )
         this.recordIs( record );
   }
   recordIs( record ) {
      this.record = record;
      this.remove( false );
      this.panels = record.interfaces.map( ( intf ) => new PastPanel( record, intf ) );
      text( this.heading, `Maintenance ${record.id} of ${record.unit}` );
      this.body.replaceChildren(
         h( 'div', { class: 'summary' }, h( 'section', { 'class': 'about', 'aria-label': 'Course' }, courseOf( record ) ),
            factsOf( record ) ),
         h( 'section', { 'aria-labelledby': 'interfaces' }, h( 'h2', { id: 'interfaces' }, 'Interfaces' ),
            h( 'div', { class: 'grid' }, this.panels.map( ( panel ) => panel.element ) ),
            record[ 'interfaces-left-out' ] ? h( 'p', { class: 'none' },
               `and ${record[ 'interfaces-left-out' ]} more that were not written down` ) : null ),
         ...( record.stages.length ? [ h( 'section', { 'aria-labelledby': 'stages' }, h( 'h2', { id: 'stages' }, 'Stages' ),
            stagesOf( record ) ) ] : [] ) );
   }
   update() {}
   remove( all = true ) {
      if ( all )
         clearInterval( this.timer );
      for ( const panel of this.panels )
         panel.curve.remove();
   }
}
