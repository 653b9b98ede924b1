// Finds pages, headings and names while somebody types. names.js holds them: [text, place, kind].
(function () {
    "use strict";
    const box = document.getElementById("wanted");
    const list = document.getElementById("found");
    const top = document.body.dataset.top;
    const most = 12;

    // The menu stands open where there is room for it.
    const menu = document.querySelector(".menu details");
    const wide = window.matchMedia("(min-width: 60rem)");
    const unfold = () => { menu.open = wide.matches; };
    wide.addEventListener("change", unfold);
    unfold();

    // Lower is better: the name itself, its beginning, a word's beginning, anywhere.
    function rank(text, wanted) {
        const at = text.toLowerCase().indexOf(wanted);
        if (at < 0) return -1;
        if (text.length === wanted.length) return 0;
        if (at === 0) return 1;
        return /[A-Za-z0-9]/.test(text[at - 1]) ? 3 : 2;
    }

    function matches(wanted) {
        const hits = [];
        for (const [text, place, kind] of window.zfcNames) {
            const value = rank(text, wanted);
            if (value >= 0) hits.push([value, text.length, text, place, kind]);
        }
        hits.sort((a, b) => a[0] - b[0] || a[1] - b[1]);
        return hits.slice(0, most);
    }

    function show() {
        const wanted = box.value.trim().toLowerCase();
        const hits = wanted === "" ? [] : matches(wanted);
        list.replaceChildren(...hits.map(([, , text, place, kind]) => {
            const item = document.createElement("li");
            const link = document.createElement("a");
            const note = document.createElement("span");
            link.href = top + place;
            link.textContent = text;
            note.textContent = kind;
            link.append(" ", note);
            item.append(link);
            return item;
        }));
        list.hidden = hits.length === 0;
    }

    box.addEventListener("input", show);
    box.addEventListener("focus", show);
    box.form.addEventListener("submit", (event) => {
        event.preventDefault();
        const first = list.querySelector("a");
        if (first) first.click();
    });
    document.addEventListener("keydown", (event) => {
        if (event.key === "Escape") list.hidden = true;
        if (event.key === "/" && document.activeElement !== box) {
            event.preventDefault();
            box.focus();
        }
    });
    document.addEventListener("focusin", (event) => {
        if (!box.form.contains(event.target)) list.hidden = true;
    });
    document.addEventListener("click", (event) => {
        if (!box.form.contains(event.target)) list.hidden = true;
    });
})();
