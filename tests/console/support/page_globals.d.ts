// Properties that the scripts of tests add to the page's window.
interface Window {
  /** Added by the accessibility tests. */
  axe: typeof import('axe-core');
  /** The page's WebSockets, oldest first. */
  sockets: WebSocket[];
  /** The text that was last written to the clipboard. */
  written: string;
  /** The largest number of bytes that waited in the page's WebSocket. */
  mostWaiting: number;
  /** Milliseconds by which the page's clock is ahead. */
  ahead: number;
  /** Stands in for the media query of full screen. */
  wholeScreen: EventTarget & { matches: boolean };
  /** Whether the page's clipboard refuses to be written, as without focus. */
  away: boolean;
  /** The control messages that the page has sent, as JSON text. */
  sent: string[];
  /** How often the page's clipboard was read. */
  reads: number;
  /** Fulfilled by release(): lets what a test has held back go on. */
  released: Promise<unknown>;
  release: () => void;
  /** Bytes of binary messages that the page has received. */
  receivedBytes: number;
  /** Whether the page's decoders are slow. */
  isSlow: boolean;
  /** How many frames the page has passed to its slow decoders. */
  received: number;
  /** The alive messages that the relay has sent. */
  alive: number;
  /** What the page has sent and the relay has answered: bytes of binary messages, and answers to pings. */
  counts: { mostWaiting: number; sent: number; passed: number; pongs: number };
  /** The types of the control messages that the page has sent. */
  controls: string[];
  /** Whether the page's WebSocket drops the next change of the list of machines. */
  dropNext: boolean;
  /** The names of the machines whose rows were changed. */
  touched: Set<string>;
  /** The content that the page saved last. */
  savedBlob: Blob;
}
