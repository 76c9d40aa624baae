// The sections that have all of the words, those with more of them in the heading first.
function find(sections, words) {
  var found = [];
  sections.forEach(function (section) {
    var heading = (section.page + " " + section.heading).toLowerCase();
    var all = heading + " " + section.text.toLowerCase();
    var inAll = words.filter(function (word) { return all.indexOf(word) >= 0; });
    var inHeading = words.filter(function (word) { return heading.indexOf(word) >= 0; });
    if (words.length > 0 && inAll.length === words.length) {
      found.push({ section: section, weight: inHeading.length });
    }
  });
  found.sort(function (one, other) { return other.weight - one.weight; });
  return found.map(function (one) { return one.section; });
}

// What stands around the first of the words.
function around(text, words) {
  var places = words.map(function (word) { return text.toLowerCase().indexOf(word); });
  var first = Math.min.apply(null, places.filter(function (place) { return place >= 0; }));
  // It may be in the heading alone.
  var begin = first < text.length ? text.lastIndexOf(" ", Math.max(0, first - 60)) + 1 : 0;
  return (begin > 0 ? "... " : "") + text.substr(begin, 200) + " ...";
}

function show(sections, query) {
  var words = query.toLowerCase().split(/\s+/).filter(Boolean);
  var found = find(sections, words);
  document.querySelector("input").value = query;
  document.getElementById("outcome").textContent = found.length + " found";
  found.forEach(function (section) {
    var entry = document.createElement("li");
    var link = document.createElement("a");
    var text = document.createElement("p");
    link.href = section.address;
    link.textContent =
      section.page === section.heading ? section.page : section.page + ": " + section.heading;
    text.textContent = around(section.text, words);
    entry.append(link, text);
    document.getElementById("found").append(entry);
  });
}

// Not where it is tested.
if (typeof document !== "undefined") {
  show(sections, new URLSearchParams(location.search).get("words") || "");
}
