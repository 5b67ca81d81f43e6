// Shows the document of the page.
const text = document.getElementById("document")?.textContent ?? "";
const shown = document.createElement("pre");
shown.textContent = text;
document.body.append(shown);
