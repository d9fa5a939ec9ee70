"use strict";

const list = (id, text) => {
    const item = document.createElement("li");
    item.textContent = text;
    document.getElementById(id).append(item);
    return item;
};
const onSubmit = (id, act) =>
    document.getElementById(id).addEventListener("submit", (event) => {
        event.preventDefault();
        act(event.target);
        event.target.reset();
    });

// Notes: all there are, then every change as it comes.
const items = new Map();
const show = (note) => {
    if (!items.has(note.id)) {
        const item = list("notes", "");
        const text = document.createElement("span");
        const remove = document.createElement("button");
        remove.textContent = "Delete";
        remove.addEventListener("click", () => fetch(`/api/notes/${note.id}`, { method: "DELETE" }));
        item.append(text, remove);
        items.set(note.id, item);
    }
    items.get(note.id).firstChild.textContent = note.text;
};
const events = new EventSource("/api/events");
events.addEventListener("open", async () => (await (await fetch("/api/notes")).json()).forEach(show));
events.addEventListener("note", (event) => show(JSON.parse(event.data)));
events.addEventListener("gone", (event) => {
    const { id } = JSON.parse(event.data);
    items.get(id)?.remove();
    items.delete(id);
});
onSubmit("new", (form) =>
    fetch("/api/notes", {
        method: "POST",
        headers: { "Content-Type": "application/json" },
        body: JSON.stringify({ text: form.elements.text.value }),
    }),
);

// Files: each is kept under its digest.
onSubmit("upload", async (form) => {
    const answer = await fetch("/api/files", { method: "POST", body: new FormData(form) });
    (await answer.text()).trim().split("\n").forEach((line) => list("files", line));
});

// Chat: for those who have logged in.
const chat = new WebSocket(`${location.protocol.replace("http", "ws")}//${location.host}/chat/lobby`);
chat.addEventListener("message", (event) => list("messages", event.data));
chat.addEventListener("open", () => list("messages", "you are here"));
chat.addEventListener("close", () => list("messages", "you are not here"));
onSubmit("chat", (form) => chat.send(form.elements.text.value));
