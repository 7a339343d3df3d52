// A link to an operation opens it, and before the page is printed all are opened.
function open_target() {
  for (let e = document.getElementById(location.hash.slice(1)); e; e = e.parentElement)
    if (e.tagName === "DETAILS") e.open = true;
  const target = location.hash && document.getElementById(location.hash.slice(1));
  if (target) target.scrollIntoView();
}
addEventListener("hashchange", open_target);
addEventListener("load", open_target);
addEventListener("beforeprint", () => document.querySelectorAll("details").forEach(d => d.open = true));
