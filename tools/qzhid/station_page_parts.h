// The parts of a station's page that are the same for every view.
#pragma once

namespace qzhid {

// --u is the unit of a tile: its width and its height hold so many that all texts fit. PASS is dark
// and FAIL is bright, and blue and orange are told apart by everyone who sees colours at all.
inline constexpr const char* kPageStyle = R"css(
* { box-sizing: border-box; margin: 0; padding: 0; }
html { height: 100%; background: #14171b; color: #f2f4f7; }
body { height: 100%; min-height: 30rem; display: flex; flex-direction: column; gap: 1vh;
  padding: 1vh 1vw; overflow-wrap: anywhere; line-height: 1.2;
  font: 2.2vmin system-ui, "Segoe UI", "DejaVu Sans", Arial, sans-serif; }
header { display: flex; justify-content: space-between; align-items: baseline; gap: 2vw;
  font-size: min(4.4vh, 2.4vw); }
h1 { font-size: 1em; overflow: hidden; white-space: nowrap; text-overflow: ellipsis; }
dl { display: flex; gap: 1.6em; white-space: nowrap; }
dl div { display: flex; gap: .4em; align-items: baseline; }
dt { font-size: .7em; color: #c3cad3; }
dd { font-weight: bold; }
main { flex: 1; min-height: 0; display: grid; gap: .8vmin;
  --across: var(--wide-across); --down: var(--wide-down);
  --width: calc(94vw / var(--across)); --height: calc(82vh / var(--down));
  --u: min(var(--width) / 20, var(--height) / 15.5);
  grid-template-columns: repeat(var(--across), minmax(0, 1fr));
  grid-template-rows: repeat(var(--down), minmax(0, 1fr)); }
@media (max-aspect-ratio: 1/1) {
  main { --across: var(--tall-across); --down: var(--tall-down); }
  header { flex-direction: column; gap: 0; }
}
section { display: flex; flex-direction: column; align-items: center; text-align: center;
  overflow: hidden; padding: calc(.4 * var(--u)) calc(.7 * var(--u)); border-radius: calc(.5 * var(--u));
  border: calc(.15 * var(--u)) solid transparent; font-size: calc(1.2 * var(--u)); }
h2, .label, .word { max-width: 100%; overflow: hidden; white-space: nowrap; text-overflow: ellipsis; }
h2 { font-size: calc(1.7 * var(--u)); }
.word { font-size: min(var(--width) / 5.4, var(--height) / 2.7); font-weight: 800; line-height: 1.15;
  margin-top: auto; }
.long .word { font-size: calc(3.9 * var(--u)); }
.what, .next { display: -webkit-box; -webkit-box-orient: vertical; -webkit-line-clamp: 3;
  overflow: hidden; }
.next { font-weight: bold; -webkit-line-clamp: 2; }
.label { font-size: calc(1 * var(--u)); margin-top: auto; }
.bar { align-self: stretch; flex: none; height: calc(1.3 * var(--u)); margin-bottom: calc(.3 * var(--u));
  border: 2px solid #f2f4f7; border-radius: calc(.3 * var(--u)); overflow: hidden; }
.bar div { height: 100%; background: #f2f4f7; }
.free { background: #272d34; color: #d6dce4; border-color: #4d5763; }
.stop { background: #000; color: #ffb566; border-color: #ffb566; }
.scan { background: #fff; color: #14171b; border: calc(.3 * var(--u)) dashed #14171b; }
.work { background: #3a4552; color: #fff; }
.pass { background: #0b57c4; color: #fff; }
.fail { background: #ff9226; color: #000; }
.alert { background: #fff; color: #000; border-left: 1.5vw solid #ff9226; padding: 1vh 1vw;
  font-size: min(4vh, 2.6vw); font-weight: bold; }
.hint { margin: auto; font-size: 6vmin; }
footer { color: #c3cad3; display: flex; justify-content: space-between; gap: 2vw; }
#old { display: none; }
.old #old { display: block; }
.told main, .old main { --height: calc(68vh / var(--down)); }
.old main, .ended main { filter: grayscale(1); opacity: .35; }
)css";

// A page that nobody replaces any more finds that out by itself.
inline constexpr const char* kPageScript = R"js(
const page = document.documentElement.dataset;
function compare() {
  const isOld = Math.abs(Date.now() - page.written) > page.goodFor * 1000;
  document.body.classList.toggle("old", isOld && !("ended" in page));
}
compare();
setInterval(compare, 500);
setTimeout(() => location.reload(), 1000);
)js";

}  // namespace qzhid
