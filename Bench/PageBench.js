// What a frame of the page costs while two hundred interfaces change, beside one of the same page at rest:
// node Bench/PageBench.js BUILD-FOLDER [pattern]. Prints a row as the benchmarks do if its name has the pattern in it, in
// processor time of the page's own thread, so that it does not matter what else the machine has to do.

import { resolve } from 'node:path';

const [ , , build = 'build/bench', pattern = '' ] = process.argv;
const row = 'page: a frame while 200 interfaces change';
if ( !new RegExp( pattern ).test( row ) )
   process.exit( 0 );
process.env.MAINT_BUILD = resolve( build );
const { Agent, twoHundred } = await import( '../Web/tests/agent.js' );
const { launch, open, scroll, soon } = await import( '../Web/tests/browser.js' );

const frames = 180, rounds = 3;
/** Of a frame that only scrolls. */
const limit = 2;

/** Nanoseconds of the page's thread while `work()` runs. */
async function busy( browser, page, work ) {
   await browser.startTracing( page, { categories: [ 'toplevel' ] } );
   await work();
   const { traceEvents } = JSON.parse( ( await browser.stopTracing() ).toString() );
   const thread = ( event ) => `${event.pid} ${event.tid}`;
   const main = new Set( traceEvents.filter( ( event ) => event.name === 'thread_name' && event.args.name === 'CrRendererMain' )
                            .map( thread ) );
   const tasks = traceEvents.filter( ( event ) => event.name === 'ThreadControllerImpl::RunTask' && main.has( thread( event ) ) &&
                                                  event.tdur !== undefined );
   if ( tasks.length < frames )
      throw new Error( `${tasks.length} tasks in ${frames} frames: the browser does not tell them` );
   return 1000 * tasks.reduce( ( sum, { tdur } ) => sum + tdur, 0 );
}
const median = ( values ) => values.sort( ( a, b ) => a - b )[ Math.floor( values.length / 2 ) ] / frames;

const agent = await Agent.start( twoHundred );
const browser = await launch();
const { page, close } = await open( browser, `${agent.address}#/unit/spine-a` );
try {
   await agent.post( 'units/spine-a/enter' );
   await soon( async () => {
      if ( await page.locator( '.panel' ).count() !== 200 )
         throw new Error( 'the page does not show all interfaces' );
   } );
   const top = () => page.evaluate( () => scrollTo( 0, 0 ) );
   const rest = [], changing = [];
   for ( let round = 0; round < rounds; ++round ) {
      await top();
      rest.push( await busy( browser, page, () => scroll( page, frames ) ) );
      await top();
      changing.push( await busy( browser, page, async () => {
         const scrolled = scroll( page, frames );
         for ( let n = 0; n < 4; ++n )
            await agent.advance( 5 );
         return scrolled;
      } ) );
   }
   console.log( 'name,cpu_time,items_per_second,label' );
   console.log( `"${row}/floor_median",${median( rest )},,` );
   console.log( `"${row}/ours_median",${median( changing )},,"at most ${limit} x"` );
} catch ( error ) {
   console.error( error );
   process.exitCode = 1;
} finally {
   await close();
   await browser.close();
   await agent.stop();
}
