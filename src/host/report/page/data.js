// Takes the page's data apart: a deflated block of one JSON text and numeric columns.
//
//   "TIVPAGE1" | u32 bytes of JSON | JSON | zeros up to a multiple of 8 | columns, little-endian
//
// A column stands in the JSON as {"t": type, "o": offset behind the JSON, "n": entries}.

const COLUMN_TYPES = {f4: Float32Array, u1: Uint8Array, u4: Uint32Array};

function bytesOf(base64) {
  const text = atob(base64);
  const bytes = new Uint8Array(text.length);
  for (let i = 0; i < text.length; i++) bytes[i] = text.charCodeAt(i);
  return bytes;
}

async function inflate(bytes) {
  if (typeof DecompressionStream === 'undefined') {
    throw new Error('this browser is too old for this page: it cannot unpack compressed data');
  }
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate'));
  return new Response(stream).arrayBuffer();
}

// Replaces every column in the JSON by a typed array over the block.
function resolveColumns(value, buffer, base) {
  if (value === null || typeof value !== 'object') return value;
  if (!Array.isArray(value) && typeof value.t === 'string' && typeof value.o === 'number') {
    return new COLUMN_TYPES[value.t](buffer, base + value.o, value.n);
  }
  for (const key of Object.keys(value)) value[key] = resolveColumns(value[key], buffer, base);
  return value;
}

async function loadData() {
  const buffer = await inflate(bytesOf(document.getElementById('data').textContent.trim()));
  const text = new TextDecoder();
  if (text.decode(buffer.slice(0, 8)) !== 'TIVPAGE1') throw new Error('the data of this page is damaged');
  const length = new DataView(buffer).getUint32(8, true);
  const model = JSON.parse(text.decode(new Uint8Array(buffer, 12, length)));
  return resolveColumns(model, buffer, Math.ceil((12 + length) / 8) * 8);
}
