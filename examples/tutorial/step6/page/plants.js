"use strict";

const item = ([name, plant]) => {
    const li = document.querySelector("template").content.cloneNode(true).querySelector("li");
    const days = Math.floor((Date.now() / 1000 - plant.watered) / 86400);
    li.querySelector("img").src = `/pictures/${name}.jpg`;
    li.querySelector("b").textContent = name;
    li.querySelector("span").textContent =
        plant.watered === 0 ? "never watered" : `watered ${days} of ${plant.days} days ago`;
    li.querySelector("form").action = `/plants/${name}/picture`;
    li.querySelector("button").onclick = () => fetch(`/plants/${name}/water`, { method: "POST" });
    return li;
};
const show = (plants) => document.querySelector("ul").replaceChildren(...Object.entries(plants).map(item));
const events = new EventSource("/events");
events.onmessage = (event) => show(JSON.parse(event.data));
events.onerror = () => (document.querySelector("#login").hidden = events.readyState !== EventSource.CLOSED);
