// Run in a page: what a reader would stumble over, as a list of sentences.
(() => {
    const complaints = [];

    function channels(colour) {
        const found = colour.match(/[\d.]+/g).map(Number);
        return found.length === 3 ? [...found, 1] : found;
    }

    // A colour over another, for whatever is half transparent.
    function over(above, below) {
        const share = above[3] + below[3] * (1 - above[3]);
        if (share === 0) return [0, 0, 0, 0];
        const mixed = [0, 1, 2].map((i) =>
            (above[i] * above[3] + below[i] * below[3] * (1 - above[3])) / share);
        return [...mixed, share];
    }

    function background(element) {
        let colour = [0, 0, 0, 0];
        for (let at = element; at; at = at.parentElement)
            colour = over(colour, channels(getComputedStyle(at).backgroundColor));
        return over(colour, [255, 255, 255, 1]);
    }

    // WCAG 2: relative luminance, and the ratio of two.
    function luminance(colour) {
        const [r, g, b] = colour.slice(0, 3).map((value) => {
            const part = value / 255;
            return part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
        });
        return 0.2126 * r + 0.7152 * g + 0.0722 * b;
    }

    function contrast(a, b) {
        const [high, low] = [luminance(a), luminance(b)].sort((x, y) => y - x);
        return (high + 0.05) / (low + 0.05);
    }

    function beginning(element) {
        return element.textContent.trim().slice(0, 40);
    }

    function judgeText(element, seen) {
        const style = getComputedStyle(element);
        const behind = background(element);
        const ratio = contrast(over(channels(style.color), behind), behind);
        const size = parseFloat(style.fontSize);
        const large = size >= 24 || (size >= 18.66 && Number(style.fontWeight) >= 700);
        const key = `${style.color} on ${behind.slice(0, 3).map(Math.round)}`;
        if (ratio < (large ? 3 : 4.5) && !seen.has(key)) {
            seen.add(key);
            complaints.push(`contrast ${ratio.toFixed(2)}: ${key}, "${beginning(element)}"`);
        }
    }

    const seen = new Set();
    let texts = 0;
    const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
    while (walker.nextNode()) {
        const element = walker.currentNode.parentElement;
        if (walker.currentNode.textContent.trim() === "" || !element.checkVisibility()) continue;
        ++texts;
        judgeText(element, seen);
    }
    if (texts < 5) complaints.push("the page shows hardly any text");

    const width = document.documentElement.clientWidth;
    if (document.documentElement.scrollWidth > width) {
        const wide = [...document.querySelectorAll("main *")].find((element) =>
            element.getBoundingClientRect().right > width + 1 &&
            !element.closest("pre, .table, figure"));
        complaints.push(`wider than the window of ${width}` +
            (wide ? `, by <${wide.tagName.toLowerCase()}> "${beginning(wide)}"` : ""));
    }
    for (const image of document.images)
        if (!image.complete || image.naturalWidth === 0)
            complaints.push(`not loaded: ${image.src}`);
    return complaints;
})()
